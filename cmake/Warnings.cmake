# The warnings for all targets. They are errors with the compilers that the project is written for;
# other releases may have other warnings.
add_library(TalvensorWarnings INTERFACE)
target_compile_options(TalvensorWarnings INTERFACE
    -Wall -Wextra -Wpedantic
    -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2)
# Shadowing among locals only, which only g++ can tell apart: parameters have the names of the members
# that they set.
target_compile_options(TalvensorWarnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
# The check of locks, see Support/ThreadAnnotations.h.
target_compile_options(TalvensorWarnings INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
# Some builds compile several sources as one. Types without external linkage are then not in the main
# file, which this warning is about. Sources that share a name with another one of their batch have
# SKIP_UNITY_BUILD_INCLUSION.
if(CMAKE_UNITY_BUILD)
    target_compile_options(TalvensorWarnings INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13
   OR CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 15)
    target_compile_options(TalvensorWarnings INTERFACE -Werror)
endif()
