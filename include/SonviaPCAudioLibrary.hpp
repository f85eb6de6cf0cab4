/**
 * What SonviaPCAudio.hpp stands on, and useful without it: the error codes, the eight functions loaded safely at run
 * time, and a log folder that the service understands.
 */
#ifndef SONVIA_PC_AUDIO_LIBRARY_HPP
#define SONVIA_PC_AUDIO_LIBRARY_HPP

#include "SonviaPCAudioDll.h"
#include "SonviaPCAudioNames.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#ifdef _WIN32
#include <windows.h>
#endif

namespace sonvia {

/// The category of Failure: error codes of this header are made of it or, where the system refused something, of
/// std::system_category.
inline const std::error_category& category() noexcept {
    class Category : public std::error_category {
        const char* name() const noexcept override { return "SonviaPCAudio"; }

        std::string message(int value) const override { return textOf(static_cast<Failure>(value)); }
    };

    static const Category kCategory;
    return kCategory;
}

inline std::error_code make_error_code(Failure failure) noexcept {
    return {static_cast<int>(failure), category()};
}

} // namespace sonvia

template <>
struct std::is_error_code_enum<sonvia::Failure> : std::true_type {};

namespace sonvia {

/// The eight functions: those of a DLL that is loaded at run time, or those that the host is linked to. Copies are
/// cheap. Nothing is ever unloaded: after its first session the library stays in the process anyway.
class Library {
public:
    /// The functions that the host is linked to.
    static Library linked() {
        Library library;
        library.init = initSonviaAudioService;
        library.uninit = uninitSonviaAudioService;
        library.setParam = ::setParam;
        library.setAccountID = ::setAccountID;
        library.exitProjection = exitAudioProjection;
        library.state = getState;
        library.sourceName = getSourceName;
        library.version = getVersion;
        return library;
    }

#ifdef _WIN32
    /// Loads SonviaPCAudioDll.dll from this folder (UTF-8) and nowhere else, and what it needs from the system's folder
    /// alone. An empty folder is that of the host's executable.
    /// Returns: Failure::TextNotUtf8, Failure::NotTheLibrary, or the system's error.
    std::error_code load(std::string_view folder = {});
#endif

    explicit operator bool() const {
        return init != nullptr;
    }

    initSonviaAudioService_fn init = nullptr;
    uninitSonviaAudioService_fn uninit = nullptr;
    setParam_fn setParam = nullptr;
    setAccountID_fn setAccountID = nullptr;
    exitAudioProjection_fn exitProjection = nullptr;
    getState_fn state = nullptr;
    getSourceName_fn sourceName = nullptr;
    getVersion_fn version = nullptr;
};

/// The folder as the library and the service understand it: absolute, created, and on Windows ASCII without spaces.
/// Returns: Failure::TextNotUtf8, TextHoldsNul, FolderNotMade, FolderTooLong or FolderWithoutShortName.
std::error_code folderForService(std::string_view utf8, std::string& folder);

namespace detail {

// The library's log and the service's command line have room for no more.
inline constexpr std::size_t kLongestFolder = 200;

// Whether every sequence is complete, as short as it can be, and no surrogate or beyond U+10FFFF.
inline bool isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at++]);
        const int more = lead < 0x80   ? 0
                         : lead < 0xC2 ? -1
                         : lead < 0xE0 ? 1
                         : lead < 0xF0 ? 2
                         : lead < 0xF5 ? 3
                                       : -1;
        if (more < 0 || text.size() - at < static_cast<std::size_t>(more)) {
            return false;
        }
        for (int i = 0; i < more; ++i) {
            const auto next = static_cast<unsigned char>(text[at++]);
            const unsigned char lowest = i > 0 ? 0x80 : lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
            const unsigned char highest = i > 0 ? 0xBF : lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
            if (next < lowest || next > highest) {
                return false;
            }
        }
    }
    return true;
}

inline std::error_code judgeText(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return Failure::TextHoldsNul;
    }
    return isUtf8(text) ? std::error_code() : Failure::TextNotUtf8;
}

#ifdef _WIN32
// For text that judgeText took.
inline std::wstring widened(std::string_view utf8) {
    const auto size = static_cast<int>(utf8.size());
    std::wstring wide(utf8.size(), L'\0'); // a letter has at least as many bytes in UTF-8 as units in UTF-16
    const int length = size == 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size);
    wide.resize(static_cast<std::size_t>(length));
    return wide;
}
#endif

} // namespace detail

inline std::error_code folderForService(std::string_view utf8, std::string& folder) {
    namespace fs = std::filesystem;
    if (const std::error_code bad = detail::judgeText(utf8)) {
        return bad;
    }
#ifdef _WIN32
    fs::path path(detail::widened(utf8));
#else
    fs::path path(utf8);
#endif
    std::error_code failed;
    path = fs::absolute(path, failed);
    if (!failed) {
        fs::create_directories(path, failed);
    }
    if (failed || !fs::is_directory(path, failed)) {
        return Failure::FolderNotMade;
    }
#ifdef _WIN32
    const auto plain = [](const std::wstring& text) {
        return std::all_of(text.begin(), text.end(),
                           [](wchar_t letter) { return letter > L' ' && letter < 127; });
    };
    std::wstring given = path.native();
    if (!plain(given)) {
        std::wstring shortened(GetShortPathNameW(given.c_str(), nullptr, 0), L'\0');
        shortened.resize(
            GetShortPathNameW(given.c_str(), shortened.data(), static_cast<DWORD>(shortened.size())));
        if (shortened.empty() || !plain(shortened)) {
            return Failure::FolderWithoutShortName;
        }
        given = shortened;
    }
    folder.clear();
    for (const wchar_t letter : given) {
        folder.push_back(static_cast<char>(letter));
    }
#else
    folder = path.native();
#endif
    return folder.size() <= detail::kLongestFolder ? std::error_code() : Failure::FolderTooLong;
}

#ifdef _WIN32
namespace detail {

template <typename Function>
bool find(HMODULE module, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return function != nullptr;
}

inline std::wstring hostFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            return path.substr(0, path.substr(0, length).find_last_of(L'\\'));
        }
        path.resize(path.size() * 2);
    }
}

} // namespace detail

inline std::error_code Library::load(std::string_view folder) {
    if (const std::error_code bad = detail::judgeText(folder)) {
        return bad;
    }
    const std::wstring wide = detail::widened(folder);
    std::error_code failed;
    const std::filesystem::path absolute =
        std::filesystem::absolute(wide.empty() ? detail::hostFolder() : wide, failed);
    const std::filesystem::path file = absolute / kLibraryFile;
    const HMODULE module = LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == nullptr) {
        return {static_cast<int>(GetLastError()), std::system_category()};
    }
    Library found;
    if (!detail::find(module, "initSonviaAudioService", found.init) ||
        !detail::find(module, "uninitSonviaAudioService", found.uninit) ||
        !detail::find(module, "setParam", found.setParam) ||
        !detail::find(module, "setAccountID", found.setAccountID) ||
        !detail::find(module, "exitAudioProjection", found.exitProjection) ||
        !detail::find(module, "getState", found.state) ||
        !detail::find(module, "getSourceName", found.sourceName) ||
        !detail::find(module, "getVersion", found.version)) {
        FreeLibrary(module);
        return Failure::NotTheLibrary;
    }
    *this = found;
    return {};
}
#endif

} // namespace sonvia

#endif // SONVIA_PC_AUDIO_LIBRARY_HPP
