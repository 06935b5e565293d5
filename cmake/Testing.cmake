# What every test program is linked with. Tests are compiled without optimisation, and the
# framework's headers once for each program: compiling them is most of what a run of all tests
# takes.
find_package(GTest REQUIRED)
include(GoogleTest)
add_library(TalvensorTesting INTERFACE)
target_link_libraries(TalvensorTesting INTERFACE
    TalvensorWarnings GTest::gtest GTest::gmock GTest::gtest_main)
target_compile_options(TalvensorTesting INTERFACE -O0)
target_precompile_headers(TalvensorTesting INTERFACE <gmock/gmock.h> <gtest/gtest.h>)
