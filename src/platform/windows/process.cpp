#include "platform/process.h"

#include "platform/command_line.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <windows.h>

#include <shellapi.h>

namespace platform {

namespace {

class WindowsProcess : public Process {
public:
    ~WindowsProcess() override {
        if (mProcess != nullptr) {
            CloseHandle(mProcess);
        }
    }

    void own(HANDLE process) { mProcess = process; }

    bool waitForEnd(std::chrono::milliseconds limit) override {
        return WaitForSingleObject(mProcess, static_cast<DWORD>(limit.count())) != WAIT_TIMEOUT;
    }

    void endByForce() override { TerminateProcess(mProcess, 1); }

private:
    HANDLE mProcess = nullptr;
};

/// Empty when the path is longer than MAX_PATH: truncated, it would name a folder above the host's.
std::wstring hostExecutablePath() {
    std::array<wchar_t, MAX_PATH> path = {};
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return length < path.size() ? std::wstring(path.data(), length) : std::wstring();
}

} // namespace

void Process::endAll(const char* program) noexcept {
    constexpr std::wstring_view kCommand = L"/c taskkill /f /t /im ";
    std::array<wchar_t, kCommand.size() + kMaxProgramName + 1> parameters = {};
    const std::size_t length = std::min(std::strlen(program), kMaxProgramName);
    std::copy_n(program, length, std::copy(kCommand.begin(), kCommand.end(), parameters.begin()));
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof info;
    // No message box of the shell's where cmd.exe may not be started: nobody might be there to close it.
    info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"open";
    info.lpFile = L"cmd.exe";
    info.lpParameters = parameters.data();
    info.nShow = SW_HIDE;
    ShellExecuteExW(&info);
    if (info.hProcess != nullptr) {
        WaitForSingleObject(info.hProcess, INFINITE);
        CloseHandle(info.hProcess);
    }
}

std::unique_ptr<Process> Process::start(const char* program, const std::vector<std::string>& arguments,
                                        int& systemError) {
    const std::wstring host = hostExecutablePath();
    if (host.empty()) {
        systemError = ERROR_FILENAME_EXCED_RANGE;
        return nullptr;
    }
    std::wstring line = commandLine(host, program, arguments);
    auto process = std::make_unique<WindowsProcess>(); // first: a started process must have its owner
    STARTUPINFOW startup = {}; // its size field is zero as well, which the system accepts
    PROCESS_INFORMATION started = {};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                       &startup, &started) == FALSE) {
        systemError = static_cast<int>(GetLastError());
        return nullptr;
    }
    CloseHandle(started.hThread); // otherwise a host that starts processes for months collects these
    process->own(started.hProcess);
    return process;
}

} // namespace platform
