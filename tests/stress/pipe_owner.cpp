// A stranger that owns the service's pipe. Writes the file "owned" into the current folder when it does, and ends when the
// file "let-go" is there, by itself after 150 s, or when it is killed.
//
// Where the current folder has no file "frames" it never serves the pipe: the one instance that it allows is taken by
// itself, so whoever else connects finds the pipe busy. Otherwise it lets the first client in, writes the file's bytes to
// it as often as the file "times" says, notes in the file "written" that they are in the pipe, and neither writes nor reads
// from then on.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

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

bool note(const char* name) {
    std::FILE* file = std::fopen(name, "w");
    return file != nullptr && std::fclose(file) == 0;
}

// Ends early when the client closes its end.
void serve(HANDLE pipe, const std::string& frames) {
    int times = 1;
    std::ifstream("times") >> times;
    ConnectNamedPipe(pipe, nullptr);
    bool open = true;
    for (int i = 0; i < times && open; ++i) {
        DWORD written = 0;
        open = WriteFile(pipe, frames.data(), static_cast<DWORD>(frames.size()), &written, nullptr) != FALSE;
    }
    note("written");
}

} // namespace

int main() {
    HANDLE pipe = takeName();
    std::ifstream file("frames", std::ios::binary);
    const std::string frames{std::istreambuf_iterator<char>(file), {}};
    if (pipe == INVALID_HANDLE_VALUE ||
        (frames.empty() && CreateFileW(kPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                       nullptr) == INVALID_HANDLE_VALUE) ||
        !note("owned")) {
        return 1;
    }
    if (!frames.empty()) {
        serve(pipe, frames);
    }
    for (int i = 0; i < kTicks && GetFileAttributesW(L"let-go") == INVALID_FILE_ATTRIBUTES; ++i) {
        Sleep(kTickMs);
    }
    return 0;
}
