# Warnings for everything built in this tree. Dependencies come in through find_package, as system headers, and
# are not judged.
if(MSVC)
    # Without C4324, which reports that alignas enlarged a structure: that is its purpose.
    add_compile_options(/W4 /wd4324 /utf-8 /permissive-)
    # Microsoft calls functions of the standard deprecated (C4996: getenv, fopen, strcpy, mbstowcs); no other
    # compiler knows what it has in their place.
    add_compile_definitions(_CRT_SECURE_NO_WARNINGS)
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
