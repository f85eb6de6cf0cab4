# Warnings for everything built in this tree. Dependencies come in through find_package, as system headers, and
# are not judged.
if(MSVC)
    add_compile_options(/W4 /utf-8 /permissive-)
    if(SONVIA_WARNINGS_AS_ERRORS)
        add_compile_options(/WX)
    endif()
else()
    add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # At -O3 GCC 12 believes that the standard library's own text + std::string overlaps itself
        # (char_traits.h, "accessing 9223372036854775810 or more bytes"); it is off whatever the project's code does.
        add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
    endif()
    if(SONVIA_WARNINGS_AS_ERRORS)
        add_compile_options(-Werror)
    endif()
endif()
