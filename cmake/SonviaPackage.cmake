# What `cmake --install` puts where, and the three archives that cpack makes of it (scripts/package):
#
#     SonviaPCAudioDll-<version>-win-x64.zip           component runtime: what a host is built and shipped with
#     SonviaPCAudioDll-<version>-win-x64-symbols.zip   component symbols: the PDB
#     SonviaPCAudioDll-<version>-win-x64-dev.zip       component dev: stand-in service, test programs, verify.cmd
#
# All three unpack into the same folder; the PDB is then next to its DLL.
include(CMakePackageConfigHelpers)

install(FILES "$<TARGET_FILE:SonviaPCAudioDll>" DESTINATION bin COMPONENT runtime)
install(PROGRAMS "$<TARGET_FILE:sonvia_host>" DESTINATION bin COMPONENT runtime)
install(FILES
    "${PROJECT_SOURCE_DIR}/include/SonviaPCAudioDll.h"
    "${PROJECT_SOURCE_DIR}/include/SonviaPCAudio.hpp"
    "${PROJECT_SOURCE_DIR}/include/SonviaPCAudioLibrary.hpp"
    "${PROJECT_SOURCE_DIR}/include/SonviaPCAudioLife.hpp"
    "${PROJECT_SOURCE_DIR}/include/SonviaPCAudioNames.hpp"
    DESTINATION include COMPONENT runtime)
install(FILES
    "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/SonviaPCAudioDll.dll.a"
    "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/SonviaPCAudioDll.lib"
    DESTINATION lib COMPONENT runtime)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/SonviaPCAudioConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_SOURCE_DIR}/cmake/SonviaPCAudioConfig.cmake"
    "${PROJECT_BINARY_DIR}/SonviaPCAudioConfigVersion.cmake"
    DESTINATION lib/cmake/SonviaPCAudio COMPONENT runtime)
install(FILES
    "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    "${PROJECT_SOURCE_DIR}/README.md"
    "${PROJECT_SOURCE_DIR}/SECURITY.md"
    "${PROJECT_SOURCE_DIR}/THIRD-PARTY-NOTICES.txt"
    "${PROJECT_SOURCE_DIR}/src/api/abi.json"
    DESTINATION . COMPONENT runtime)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" DESTINATION . COMPONENT runtime FILES_MATCHING PATTERN "*.md")
install(DIRECTORY
    "${PROJECT_SOURCE_DIR}/examples/minimal_host"
    "${PROJECT_SOURCE_DIR}/examples/package_host"
    DESTINATION examples COMPONENT runtime FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp"
    PATTERN "package_host/CMakeLists.txt" PATTERN "package_host/scenario.txt")
install(DIRECTORY
    "${PROJECT_SOURCE_DIR}/examples/any_host"
    "${PROJECT_SOURCE_DIR}/examples/cpp_host"
    "${PROJECT_SOURCE_DIR}/examples/csharp_host"
    "${PROJECT_SOURCE_DIR}/examples/python_host"
    "${PROJECT_SOURCE_DIR}/examples/rust_host"
    "${PROJECT_SOURCE_DIR}/examples/node_host" "${PROJECT_SOURCE_DIR}/examples/electron_host"
    DESTINATION examples COMPONENT runtime)
install(DIRECTORY
    "${PROJECT_SOURCE_DIR}/bindings/csharp"
    "${PROJECT_SOURCE_DIR}/bindings/node"
    "${PROJECT_SOURCE_DIR}/bindings/python"
    "${PROJECT_SOURCE_DIR}/bindings/rust"
    DESTINATION bindings COMPONENT runtime PATTERN "__pycache__" EXCLUDE PATTERN ".mypy_cache" EXCLUDE)

install(FILES "$<TARGET_FILE_DIR:SonviaPCAudioDll>/SonviaPCAudioDll.pdb" DESTINATION bin COMPONENT symbols)

# The programs that ./test runs under Wine, to be run on a real Windows. They load the DLL next to them.
# One of them reads in the linker's map where functions are.
install(FILES
    "$<TARGET_FILE:SonviaPCAudioDll>"
    "$<TARGET_FILE_DIR:SonviaPCAudioDll>/SonviaPCAudioDll.map"
    DESTINATION dev/bin COMPONENT dev)
install(PROGRAMS "${PROJECT_SOURCE_DIR}/tests/package/verify.cmd" DESTINATION dev COMPONENT dev)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/demo_host" DESTINATION dev/examples COMPONENT dev
    FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h")
install(FILES "${PROJECT_SOURCE_DIR}/tools/standin_service/README.md" DESTINATION dev/standin_service COMPONENT dev)
# Left out: what needs the tree's files, what fails on purpose, and what stands in for a part of Wine.
install(DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/" DESTINATION dev/bin COMPONENT dev
    FILES_MATCHING PATTERN "*.exe"
    REGEX "/(replay_|canary_)[^/]*$" EXCLUDE
    PATTERN "unit_docs.exe" EXCLUDE
    PATTERN "sonvia-host.exe" EXCLUDE
    REGEX "/(integration_)?taskkill.exe$" EXCLUDE)
install(DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/gallery" DESTINATION dev/bin COMPONENT dev)
install(FILES "$<TARGET_FILE:sonvia_tap>" DESTINATION dev/bin/tap COMPONENT dev)
install(FILES
    "${PROJECT_SOURCE_DIR}/tools/lnav/sonvia.json"
    "${PROJECT_SOURCE_DIR}/tools/wireshark/qupc.lua"
    DESTINATION dev/tools COMPONENT dev)
install(DIRECTORY "${PROJECT_BINARY_DIR}/bin_alone" DESTINATION dev COMPONENT dev FILES_MATCHING PATTERN "*.exe")

# Last, so that it sees all of the component's files.
foreach(component IN ITEMS runtime symbols dev)
    install(CODE "
        set(component ${component})
        include(\"${PROJECT_SOURCE_DIR}/cmake/WriteSums.cmake\")"
        COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME "SonviaPCAudioDll-${PROJECT_VERSION}-win-x64")
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_ALL runtime symbols dev)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_ARCHIVE_RUNTIME_FILE_NAME "${CPACK_PACKAGE_FILE_NAME}")
set(CPACK_ARCHIVE_SYMBOLS_FILE_NAME "${CPACK_PACKAGE_FILE_NAME}-symbols")
set(CPACK_ARCHIVE_DEV_FILE_NAME "${CPACK_PACKAGE_FILE_NAME}-dev")
set(CPACK_OUTPUT_FILE_PREFIX "${PROJECT_BINARY_DIR}/package")
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
