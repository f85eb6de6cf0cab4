# sonvia_add_test(<name> SOURCES <file>... [LIBS <target>...] [LABELS <label>...] [SERIAL] [TIMEOUT <seconds>])
#
# One GoogleTest executable and one ctest entry, both called <name>. It leaves result.xml in the folder that it runs
# in, and ./test counts what stands there. Further arguments as below.
#
# sonvia_run_as_test(<target> [ARGS <argument>...] [LABELS <label>...] [SERIAL] [TIMEOUT <seconds>])
#
# Makes a ctest entry of any program whose exit code tells success. Each runs in a folder of its own,
# build/<preset>/testrun/<target>.
#
# SERIAL: the test shares something with other tests that there is only one of (the service's process name, all of
# the processor's time), so no two of them run at once. Under Wine every test runs alone in its prefix.
set(SONVIA_TIMEOUT_FACTOR 1 CACHE STRING "How much longer than usual a test may take; ./test --long sets it")

function(sonvia_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "TIMEOUT" "SOURCES;LIBS;LABELS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "sonvia_add_test(${name}): wants SOURCES, does not know '${arg_UNPARSED_ARGUMENTS}'")
    endif()

    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} sonvia_core GTest::gtest_main)
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    if(TARGET sonvia_test_headers)
        target_precompile_headers(${name} REUSE_FROM sonvia_test_headers)
    endif()

    set(serial)
    if(arg_SERIAL)
        set(serial SERIAL)
    endif()
    # A relative name for the result: it means the same to a program under Wine as to a native one.
    sonvia_run_as_test(${name}
        ARGS --gtest_output=xml:result.xml
        LABELS ${arg_LABELS}
        TIMEOUT ${arg_TIMEOUT}
        ${serial})
endfunction()

function(sonvia_run_as_test target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "TIMEOUT" "ARGS;LABELS")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "sonvia_run_as_test(${target}): does not know '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    math(EXPR timeout "${arg_TIMEOUT} * ${SONVIA_TIMEOUT_FACTOR}")

    # Wine or the sanitizers' options: each toolchain file names what its programs are launched with.
    set(folder "${PROJECT_BINARY_DIR}/testrun/${target}")
    file(MAKE_DIRECTORY "${folder}")
    add_test(NAME ${target}
        COMMAND ${SONVIA_TEST_LAUNCHER} "$<TARGET_FILE:${target}>" ${arg_ARGS}
        WORKING_DIRECTORY "${folder}")
    set_tests_properties(${target} PROPERTIES TIMEOUT ${timeout} LABELS "${arg_LABELS}")
    if(SONVIA_TESTS_USE_WINE)
        set_tests_properties(${target} PROPERTIES RUN_SERIAL TRUE FIXTURES_REQUIRED wine)
    endif()
    if(arg_SERIAL)
        set_tests_properties(${target} PROPERTIES RESOURCE_LOCK sonvia_serial)
    endif()
endfunction()

if(WIN32 AND CMAKE_CROSSCOMPILING)
    set(SONVIA_TESTS_USE_WINE ON)
    # The prefix is made before the first test and every program in it ended after the last one.
    add_test(NAME wine_start COMMAND "${PROJECT_SOURCE_DIR}/scripts/wine-prefix" start)
    add_test(NAME wine_stop COMMAND "${PROJECT_SOURCE_DIR}/scripts/wine-prefix" stop)
    set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine TIMEOUT 300)
    set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine TIMEOUT 60)
endif()
