// Owns the service's pipe and never serves it: the one instance that it allows is taken by itself, so whoever else
// connects finds the pipe busy. Writes the file "owned" into the current folder when that is so, and ends when
// the file "let-go" is there, by itself after 150 s, or when it is killed.
#include <cstdio>

#include <windows.h>

namespace {

constexpr const wchar_t* kPipe = LR"(\\.\pipe\uv_pipe.QuPCAudio)";
constexpr int kTickMs = 10;
constexpr int kTicks = 15000;

// An earlier owner of the name may still be on its way out.
HANDLE takeName() {
    for (int i = 0; i < kTicks; ++i) {
        HANDLE pipe = CreateNamedPipeW(kPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                       PIPE_TYPE_BYTE, 1, 65536, 65536, 0, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) {
            return pipe;
        }
        Sleep(kTickMs);
    }
    return INVALID_HANDLE_VALUE;
}

} // namespace

int main() {
    if (takeName() == INVALID_HANDLE_VALUE ||
        CreateFileW(kPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr) ==
            INVALID_HANDLE_VALUE) {
        return 1;
    }
    std::FILE* owned = std::fopen("owned", "w");
    if (owned == nullptr) {
        return 1;
    }
    std::fclose(owned);
    for (int i = 0; i < kTicks && GetFileAttributesW(L"let-go") == INVALID_FILE_ATTRIBUTES; ++i) {
        Sleep(kTickMs);
    }
    return 0;
}
