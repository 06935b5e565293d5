# Every test program links this. Tests are compiled without optimisation, and the framework's headers
# once for all of them: most of the time of a full test run is compiling.
find_package(GTest REQUIRED)
include(GoogleTest)
add_library(TalvensorTesting INTERFACE)
target_link_libraries(TalvensorTesting INTERFACE
    TalvensorWarnings GTest::gtest GTest::gmock GTest::gtest_main)
target_compile_options(TalvensorTesting INTERFACE -O0)
# They keep AddressSanitizer; undefined behaviour is looked for in what they test.
if(TALVENSOR_SANITIZER STREQUAL "address")
    target_compile_options(TalvensorTesting INTERFACE -fno-sanitize=undefined)
endif()

# A program without tests, which owns the precompiled headers.
set(noSource ${CMAKE_BINARY_DIR}/NoTests.cpp)
file(CONFIGURE OUTPUT ${noSource} CONTENT "")
add_executable(NoTests ${noSource})
target_link_libraries(NoTests PRIVATE TalvensorTesting)
target_precompile_headers(NoTests PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

# For add_test_program, where `talvensor test --long` is soon enough to look for races.
set(TALVENSOR_LONG_WITH_THREAD_SANITIZER "")
if(TALVENSOR_SANITIZER STREQUAL "thread")
    set(TALVENSOR_LONG_WITH_THREAD_SANITIZER LONG)
endif()

# Builds everything that the tests without the label "long" need: those take long to run or to build.
add_custom_target(ShortTests)

# add_test_program(NAME [LONG] SOURCE...): an executable of tests; LONG if discover_tests gives all of
# them the label "long".
function(add_test_program name)
    cmake_parse_arguments(PARSE_ARGV 1 program "LONG" "" "")
    add_executable(${name} ${program_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE TalvensorTesting)
    target_precompile_headers(${name} REUSE_FROM NoTests)
    set_target_properties(${name} PROPERTIES TALVENSOR_LONG ${program_LONG})
    if(NOT program_LONG)
        add_dependencies(ShortTests ${name})
    endif()
endfunction()

# discover_tests(PROGRAM [IN_PARTS] [LONG_WITH_SANITIZER NAME...] [PROPERTIES PROPERTY VALUE...]): each
# test of the program by its name. With a sanitizer, or IN_PARTS, a process takes longer to start than
# most tests to run: there the program runs its tests in four parts. The tests named LONG_WITH_SANITIZER
# have the label "long" there.
function(discover_tests program)
    cmake_parse_arguments(PARSE_ARGV 1 tests IN_PARTS "" "LONG_WITH_SANITIZER;PROPERTIES")
    get_target_property(isLong ${program} TALVENSOR_LONG)
    if(isLong)
        list(APPEND tests_PROPERTIES LABELS long)
    endif()
    if(NOT TALVENSOR_SANITIZER AND NOT tests_IN_PARTS)
        gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 ${tests_PROPERTIES})
        return()
    endif()
    set(long "")
    if(TALVENSOR_SANITIZER)
        string(REPLACE ";" ":" long "${tests_LONG_WITH_SANITIZER}")
    endif()
    foreach(part RANGE 3)
        set(name ${program}.${part})
        add_test(NAME ${name} COMMAND ${program} --gtest_brief=1 --gtest_filter=-${long})
        set_tests_properties(${name} PROPERTIES TIMEOUT 900 ${tests_PROPERTIES})
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
            GTEST_TOTAL_SHARDS=4 GTEST_SHARD_INDEX=${part})
    endforeach()
    if(long)
        add_test(NAME ${program}.long COMMAND ${program} --gtest_brief=1 --gtest_filter=${long})
        set_tests_properties(${program}.long PROPERTIES TIMEOUT 900 ${tests_PROPERTIES} LABELS long)
    endif()
endfunction()

# Keys that hosts and clients have made in tests, for those of later tests.
set(TALVENSOR_KEPT_KEYS ${PROJECT_BINARY_DIR}/kept-keys)

# add_node_test(NAME ARGUMENT...): a test that node runs; disabled where there is no node.
find_program(TALVENSOR_NODE NAMES node nodejs DOC "Runs the tests that are written for it")
if(NOT TALVENSOR_NODE)
    message(WARNING "The tests that need node are disabled: it was not found")
endif()
function(add_node_test name)
    if(TALVENSOR_NODE)
        add_test(NAME ${name} COMMAND ${TALVENSOR_NODE} ${ARGN})
    else()
        add_test(NAME ${name} COMMAND node ${ARGN})
        set_tests_properties(${name} PROPERTIES DISABLED TRUE)
    endif()
endfunction()
