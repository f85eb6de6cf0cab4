# Warnings for everything built in this tree. Dependencies come in through find_package, as system headers, and
# are not judged.
if(MSVC)
    add_compile_options(/W4 /utf-8 /permissive-)
    if(SONVIA_WARNINGS_AS_ERRORS)
        add_compile_options(/WX)
    endif()
else()
    add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(SONVIA_WARNINGS_AS_ERRORS)
        add_compile_options(-Werror)
    endif()
endif()
