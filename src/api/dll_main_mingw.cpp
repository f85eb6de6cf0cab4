// Cleans up after a library that was loaded and freed without being used. After the first initSonviaAudioService it stays
// in the process, and only the end of the process reaches this.
#include <windows.h>

#include <cstdlib>

// NOLINTBEGIN(clang-diagnostic-reserved-identifier,readability-identifier-naming): libstdc++'s own names
namespace __gnu_cxx {
void __freeres();

// What std::terminate calls. Takes the place of libstdc++'s, which prints the exception's type to the host's standard error
// first and brings 50 KB of name demangler for that; what the host's callback threw is in the log.
[[noreturn]] void __verbose_terminate_handler() {
    std::abort();
}
} // namespace __gnu_cxx

// NOLINTEND(clang-diagnostic-reserved-identifier,readability-identifier-naming)

// libstdc++ reserves memory for exceptions thrown when no other is left, one block for each module that it is linked
// into, and frees it only when asked: without this each LoadLibrary with its FreeLibrary cost the host 72 KB
// (LibraryMayBeLoadedAndFreedManyTimes). `reserved` is set at the end of the process, where nothing needs to be freed and
// threads may have been ended inside the heap's lock.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        __gnu_cxx::__freeres();
    }
    return TRUE;
}
