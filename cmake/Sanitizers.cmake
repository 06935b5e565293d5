# TALVENSOR_SANITIZER: empty, "address" (with undefined behaviour) or "thread".
set(TALVENSOR_SANITIZER "" CACHE STRING "address, thread or nothing")
if(TALVENSOR_SANITIZER STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    # Its check of dynamic types needs a pipe. In a process without free descriptors, which some
    # tests have, it would report broken objects.
    add_compile_options(-fno-sanitize=vptr)
    # The OPC UA library keeps callbacks as pointers to functions of void pointers, whatever they take.
    add_compile_options($<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
    add_link_options(-fsanitize=address,undefined)
elseif(TALVENSOR_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(TALVENSOR_SANITIZER)
    message(FATAL_ERROR "TALVENSOR_SANITIZER is '${TALVENSOR_SANITIZER}'; it can be address or thread")
endif()
