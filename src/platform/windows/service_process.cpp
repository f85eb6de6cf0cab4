#include "platform/service_process.h"

#include <array>
#include <string>
#include <windows.h>

#include <shellapi.h>

namespace platform {

namespace {

class WindowsServiceProcess : public ServiceProcess {
public:
    ~WindowsServiceProcess() override {
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

/// Empty when it is longer than the service's command line may be: cut, it would name a folder above the host's.
std::wstring hostExecutablePath() {
    std::array<wchar_t, MAX_PATH> path = {};
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return length < path.size() ? std::wstring(path.data(), length) : std::wstring();
}

} // namespace

void ServiceProcess::killAll() noexcept {
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof info;
    // No message box of the shell's where cmd.exe may not be started: nobody might be there to close it.
    info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"open";
    info.lpFile = L"cmd.exe";
    info.lpParameters = L"/c taskkill /f /t /im QuPCAudio.exe";
    info.nShow = SW_HIDE;
    ShellExecuteExW(&info);
    if (info.hProcess != nullptr) {
        WaitForSingleObject(info.hProcess, INFINITE);
        CloseHandle(info.hProcess);
    }
}

std::unique_ptr<ServiceProcess> ServiceProcess::start(const char* logDir, int logLevel, int& systemError) {
    const std::wstring host = hostExecutablePath();
    if (host.empty()) {
        systemError = ERROR_FILENAME_EXCED_RANGE;
        return nullptr;
    }
    std::wstring commandLine = serviceCommandLine(host, logDir, logLevel);
    auto process =
        std::make_unique<WindowsServiceProcess>(); // first: what is started then is not left to itself
    STARTUPINFOW startup = {};                     // its size field is zero as well, which the system accepts
    PROCESS_INFORMATION started = {};
    if (CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                       nullptr, &startup, &started) == FALSE) {
        systemError = static_cast<int>(GetLastError());
        return nullptr;
    }
    CloseHandle(started.hThread); // a host that starts and stops the service for months would collect these
    process->own(started.hProcess);
    return process;
}

} // namespace platform
