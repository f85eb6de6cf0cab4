# sonvia_add_test(<name> SOURCES <file>... [LIBS <target>...] [LABELS <label>...] [SERIAL] [TIMEOUT <seconds>])
#
# One GoogleTest executable and one ctest entry, both called <name>. Each test runs in a folder of its own,
# build/<preset>/testrun/<name>, and leaves result.xml there, which ./test counts.
#
# SERIAL: the test shares something with other tests that there is only one of (the pipe's name, the service's
# process name), so no two of them run at the same time. Under Wine every test is serial: all of them share one
# prefix and one wineserver.
function(sonvia_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "TIMEOUT" "SOURCES;LIBS;LABELS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "sonvia_add_test(${name}): wants SOURCES, does not know '${arg_UNPARSED_ARGUMENTS}'")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()

    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} sonvia_core GTest::gtest_main)
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")

    set(folder "${PROJECT_BINARY_DIR}/testrun/${name}")
    file(MAKE_DIRECTORY "${folder}")
    # A relative name: it means the same to a program under Wine as to a native one.
    add_test(NAME ${name} COMMAND ${name} --gtest_output=xml:result.xml WORKING_DIRECTORY "${folder}")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
    if(WIN32)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    elseif(arg_SERIAL)
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK sonvia_serial)
    endif()
endfunction()
