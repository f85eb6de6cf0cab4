# sonvia_tool_headers: CLI11, nlohmann-json and fmt for the tools, headers only. The product does not use them.
#
# Debian installs them in /usr/include, which must not become visible to the cross compiler: the folders that are needed
# are linked into one of their own.
add_library(sonvia_tool_headers INTERFACE)
target_compile_definitions(sonvia_tool_headers INTERFACE FMT_HEADER_ONLY)
if(MSVC)
    find_package(CLI11 CONFIG REQUIRED)
    find_package(nlohmann_json CONFIG REQUIRED)
    find_package(fmt CONFIG REQUIRED)
    target_link_libraries(sonvia_tool_headers INTERFACE CLI11::CLI11 nlohmann_json::nlohmann_json fmt::fmt-header-only)
    return()
endif()

set(tool_headers "${PROJECT_BINARY_DIR}/tool_headers")
file(MAKE_DIRECTORY "${tool_headers}")
foreach(header IN ITEMS CLI/CLI.hpp nlohmann/json.hpp fmt/format.h)
    cmake_path(GET header PARENT_PATH folder)
    find_path(SONVIA_${folder}_HEADERS "${header}" PATHS /usr/include /usr/local/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
        REQUIRED)
    file(CREATE_LINK "${SONVIA_${folder}_HEADERS}/${folder}" "${tool_headers}/${folder}" SYMBOLIC)
endforeach()
target_include_directories(sonvia_tool_headers SYSTEM INTERFACE "${tool_headers}")
