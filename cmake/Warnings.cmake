# One set of warnings for every target of ours, all of them errors.
add_library(TalvensorWarnings INTERFACE)
target_compile_options(TalvensorWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2)
# Of shadowing only among locals, which g++ alone can tell apart: parameters are named like the
# members they set.
target_compile_options(TalvensorWarnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
