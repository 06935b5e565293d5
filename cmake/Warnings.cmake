# One set of warnings for every target of ours, all of them errors with the compilers that the
# project is written for. Other releases have warnings that nobody here has seen.
add_library(TalvensorWarnings INTERFACE)
target_compile_options(TalvensorWarnings INTERFACE
    -Wall -Wextra -Wpedantic
    -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2)
# Of shadowing only among locals, which g++ alone can tell apart: parameters are named like the
# members they set.
target_compile_options(TalvensorWarnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
# Locks: what Support/ThreadAnnotations.h declares.
target_compile_options(TalvensorWarnings INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# The sanitizers' builds compile several sources as one. Types without external linkage are then no
# longer in the main file, which this warning goes by. Sources that share a name with another of
# their batch have SKIP_UNITY_BUILD_INCLUSION.
if(CMAKE_UNITY_BUILD)
    target_compile_options(TalvensorWarnings INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13
   OR CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 15)
    target_compile_options(TalvensorWarnings INTERFACE -Werror)
endif()
