# sonvia_add_test(<name> SOURCES <file>... [LIBS <target>...] [LABELS <label>...] [SERIAL] [TIMEOUT <seconds>])
#
# One GoogleTest program and, for each test suite in its sources, one ctest entry <name>.<suite>. An entry leaves
# result.xml in the folder that it runs in and, written case by case, cases.txt: what ./test counts. The label is `unit`
# when none is given. Further arguments as below.
#
# sonvia_run_as_test(<target> [NAME <name>] [ARGS <argument>...] [LABELS <label>...] [SERIAL] [TIMEOUT <seconds>]
#     [ENVIRONMENT <variable>...])
#
# Makes a ctest entry of any program whose exit code reports success. Each runs in a folder of its own,
# build/<preset>/testrun/<name>.
#
# SERIAL: the test uses what there is only one of, the service's process name and pipe. Natively no two of these run at
# once; under Wine each has one of the prefixes of cmake/wine-prefixes.json to itself while it runs.
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
    if(TARGET sonvia_case_log)
        target_sources(${name} PRIVATE $<TARGET_OBJECTS:sonvia_case_log>)
    endif()

    set(serial)
    if(arg_SERIAL)
        set(serial SERIAL)
    endif()
    if(NOT arg_LABELS)
        set(arg_LABELS unit)
    endif()
    sonvia_list_suites(suites ${arg_SOURCES})
    string(REPLACE ";" ":" known "${suites}")
    foreach(suite IN LISTS suites)
        # Relative names: they mean the same to a program under Wine as to a native one.
        sonvia_run_as_test(${name}
            NAME ${name}.${suite}
            ARGS --gtest_output=xml:result.xml "--gtest_filter=${suite}.*:*/${suite}.*:${suite}/*"
            ENVIRONMENT SONVIA_CASES=cases.txt "SONVIA_SUITES=${known}"
            LABELS ${arg_LABELS}
            TIMEOUT ${arg_TIMEOUT}
            ${serial})
    endforeach()
endfunction()

# The names of the suites in the sources. To ask each program for them would take a start under Wine after each build.
# A program says so itself when it has one that is not among these (tests/support/case_log.cpp).
function(sonvia_list_suites result)
    set(suites)
    foreach(source IN LISTS ARGN)
        cmake_path(ABSOLUTE_PATH source NORMALIZE)
        if(source MATCHES "\\.cpp$")
            set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
            file(STRINGS "${source}" tests REGEX "^(TYPED_)?TEST(_F|_P)?\\(")
            list(TRANSFORM tests REPLACE "^[A-Z_]+\\( *([A-Za-z0-9_]+).*$" "\\1")
            list(APPEND suites ${tests})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES suites)
    set(${result} "${suites}" PARENT_SCOPE)
endfunction()

function(sonvia_run_as_test target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "NAME;TIMEOUT" "ARGS;LABELS;ENVIRONMENT")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "sonvia_run_as_test(${target}): does not know '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(NOT arg_NAME)
        set(arg_NAME ${target})
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    math(EXPR timeout "${arg_TIMEOUT} * ${SONVIA_TIMEOUT_FACTOR}")

    # Wine or the sanitizers' options: each toolchain file names what its programs are launched with.
    set(folder "${PROJECT_BINARY_DIR}/testrun/${arg_NAME}")
    file(MAKE_DIRECTORY "${folder}")
    add_test(NAME ${arg_NAME}
        COMMAND ${SONVIA_TEST_LAUNCHER} "$<TARGET_FILE:${target}>" ${arg_ARGS}
        WORKING_DIRECTORY "${folder}")
    set_tests_properties(${arg_NAME} PROPERTIES
        TIMEOUT ${timeout} LABELS "${arg_LABELS}" ENVIRONMENT "${arg_ENVIRONMENT}")
    if(SONVIA_TESTS_USE_WINE)
        set_tests_properties(${arg_NAME} PROPERTIES FIXTURES_REQUIRED wine)
    endif()
    if(arg_SERIAL AND SONVIA_TESTS_USE_WINE)
        set_tests_properties(${arg_NAME} PROPERTIES RESOURCE_GROUPS wine:1)
    elseif(arg_SERIAL)
        set_tests_properties(${arg_NAME} PROPERTIES RESOURCE_LOCK sonvia_serial)
    endif()
    # The longest first; after a run ctest knows better.
    if("stress" IN_LIST arg_LABELS)
        set_tests_properties(${arg_NAME} PROPERTIES COST 20)
    elseif("integration" IN_LIST arg_LABELS)
        set_tests_properties(${arg_NAME} PROPERTIES COST 10)
    endif()
endfunction()

if(WIN32 AND CMAKE_CROSSCOMPILING)
    set(SONVIA_TESTS_USE_WINE ON)
    # The prefixes are made before the first test and every program in them ended after the last one.
    add_test(NAME wine_start COMMAND "${PROJECT_SOURCE_DIR}/scripts/wine-prefix" start)
    add_test(NAME wine_stop COMMAND "${PROJECT_SOURCE_DIR}/scripts/wine-prefix" stop)
    set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine TIMEOUT 300)
    set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine TIMEOUT 60)
endif()
