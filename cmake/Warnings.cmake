# One set of warnings for every target of ours, all of them errors.
add_library(TalvensorWarnings INTERFACE)
target_compile_options(TalvensorWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
    -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion -Wformat=2)
