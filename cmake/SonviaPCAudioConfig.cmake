# find_package(SonviaPCAudio CONFIG) gives the target SonviaPCAudio::SonviaPCAudio: the DLL, its import library and its
# header, below the folder that the package was unpacked to.
if(NOT WIN32 OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(SonviaPCAudio_FOUND FALSE)
    set(SonviaPCAudio_NOT_FOUND_MESSAGE "SonviaPCAudioDll is for x64 Windows programs")
    return()
endif()

if(NOT TARGET SonviaPCAudio::SonviaPCAudio)
    get_filename_component(_sonvia_root "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
    set(_sonvia_import_library "${_sonvia_root}/lib/SonviaPCAudioDll.lib")
    if(MINGW)
        set(_sonvia_import_library "${_sonvia_root}/lib/SonviaPCAudioDll.dll.a")
    endif()
    add_library(SonviaPCAudio::SonviaPCAudio SHARED IMPORTED)
    set_target_properties(SonviaPCAudio::SonviaPCAudio PROPERTIES
        IMPORTED_LOCATION "${_sonvia_root}/bin/SonviaPCAudioDll.dll"
        IMPORTED_IMPLIB "${_sonvia_import_library}"
        INTERFACE_INCLUDE_DIRECTORIES "${_sonvia_root}/include")
    unset(_sonvia_import_library)
    unset(_sonvia_root)
endif()
