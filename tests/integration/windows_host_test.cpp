// What only a Windows host can see: the command line of the service, and what the library leaves of its process.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include <windows.h>

#include <winternl.h>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

class WindowsHost : public support::ServiceTest {};

TEST_F(WindowsHost, LogFolderIsTruncatedTo255CharactersOnTheServicesCommandLine) {
    // The library keeps the folder of the first handle for its log; it must not be this one.
    start("");
    stop();
    standin.play("");
    const std::string folder(300, 'f');
    handle = api.init(folder.c_str(), SONVIA_LOG_ERROR);
    ASSERT_NE(handle, nullptr);
    ASSERT_TRUE(standin.waitForEvent("start"));
    const support::Json::List argv = standin.recorded("start").at(0).at("argv").list();
    ASSERT_EQ(argv.size(), 3U);
    EXPECT_EQ(argv[1].text(), std::string(255, 'f'));
    EXPECT_EQ(argv[2].text(), "4");
}

// The host has a console, which the service would share if it were not given another one, without a window.
TEST_F(WindowsHost, ServiceOfAConsoleProgramHasAConsoleOfItsOwn) {
    const fs::path folder = fs::current_path() / "recorded";
    fs::create_directories(folder);
    fs::copy_file(support::programFolder() / "host_child.exe", folder / "host_child.exe");
    fs::copy_file(support::programFolder() / "SonviaPCAudioDll.dll", folder / "SonviaPCAudioDll.dll");
    fs::copy_file(support::programFolder() / "start_recorder.exe", folder / "QuPCAudio.exe");
    std::wstring line = L"recorded\\host_child.exe never-configured";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION host = {};
    ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               nullptr, &startup, &host));
    const auto timeout = static_cast<DWORD>(std::chrono::milliseconds(support::kProcessTimeout).count());
    EXPECT_EQ(WaitForSingleObject(host.hProcess, timeout), WAIT_OBJECT_0);
    CloseHandle(host.hThread);
    CloseHandle(host.hProcess);
    std::ifstream file("QuPCAudio.exe.txt");
    const std::string record{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(record.find("processes on the console: 1\nwindow: no\n"), std::string::npos) << record;
}

TEST_F(WindowsHost, ErrorModeAndCurrentFolderAreLeftAsTheyWere) {
    const UINT before = SetErrorMode(SEM_FAILCRITICALERRORS);
    SetErrorMode(SEM_FAILCRITICALERRORS);
    wchar_t folder[1024] = {};
    GetCurrentDirectoryW(1024, folder);

    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    EXPECT_EQ(GetErrorMode(), static_cast<UINT>(SEM_FAILCRITICALERRORS));
    stop();
    EXPECT_EQ(GetErrorMode(), static_cast<UINT>(SEM_FAILCRITICALERRORS));
    wchar_t folderAfter[1024] = {};
    GetCurrentDirectoryW(1024, folderAfter);
    EXPECT_STREQ(folderAfter, folder);
    SetErrorMode(before);
}

// The service lives on, and yet the pipe has no writer left when the host has closed its own end.
TEST_F(WindowsHost, ServiceInheritsNoHandleOfTheHost) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(CreatePipe(&reader, &writer, &inherited, 0));
    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(writer, &flags));
    EXPECT_EQ(flags, static_cast<DWORD>(HANDLE_FLAG_INHERIT)) << "still what the host made it";
    CloseHandle(writer);
    DWORD waiting = 0;
    EXPECT_FALSE(PeekNamedPipe(reader, nullptr, 0, nullptr, &waiting, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    EXPECT_TRUE(standin.running());
    CloseHandle(reader);
}

// What the system says this program's path is, while it lives: Wine starts none from a path of more than 260 characters.
class ProgramPath {
public:
    explicit ProgramPath(std::wstring path) : mPath(std::move(path)) {
        mName.Buffer = mPath.data();
        mName.Length = static_cast<USHORT>(mPath.size() * sizeof(wchar_t));
        mName.MaximumLength = static_cast<USHORT>(mName.Length + sizeof(wchar_t));
        std::swap(name(), mName);
    }

    ~ProgramPath() { std::swap(name(), mName); }

    ProgramPath(const ProgramPath&) = delete;
    ProgramPath& operator=(const ProgramPath&) = delete;

private:
    // The program is the first in the list of modules.
    static UNICODE_STRING& name() {
        LIST_ENTRY* const first = NtCurrentTeb()->ProcessEnvironmentBlock->Ldr->InMemoryOrderModuleList.Flink;
        return CONTAINING_RECORD(first, LDR_DATA_TABLE_ENTRY, InMemoryOrderLinks)->FullDllName;
    }

    std::wstring mPath;
    UNICODE_STRING mName = {};
};

// The service is started by its path, which cannot be so long; cut, it would name a folder above the host's.
TEST_F(WindowsHost, ProgramWithAPathOfMoreThan260CharactersGetsNoHandleAndALine) {
    standin.play("no-pipe\n");
    const std::wstring service = support::programFolder().wstring() + L"\\QuPCAudio.exe";
    std::wstring folder = fs::current_path().wstring();
    for (int level = 0; level < 3; ++level) {
        folder += L"\\" + std::wstring(100, static_cast<wchar_t>(L'a' + level));
        // An earlier run may have left it: its path is too long for what empties the test's folder.
        ASSERT_TRUE(CreateDirectoryW((LR"(\\?\)" + folder).c_str(), nullptr) ||
                    GetLastError() == ERROR_ALREADY_EXISTS);
        ASSERT_TRUE(CopyFileW(service.c_str(), (LR"(\\?\)" + folder + L"\\QuPCAudio.exe").c_str(), FALSE));
    }
    {
        const ProgramPath longPath(folder + L"\\host.exe");
        handle = api.init(support::logFolder().c_str(), SONVIA_LOG_INFO);
    }
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(standin.recorded("start").empty());
    EXPECT_NE(support::logText().find("]the system's error is " + std::to_string(ERROR_FILENAME_EXCED_RANGE)),
              std::string::npos);
}

TEST_F(WindowsHost, ServiceEndsAlsoWhereNoTaskkillIsOnThePath) {
    const std::wstring before = [] {
        std::wstring path(32767, L'\0');
        path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
        return path;
    }();
    startAndConfigure("on-stop ignore\nwait packet key KORUInfo\nnote ready\n");
    ASSERT_TRUE(standin.waitForNote("ready"));
    ASSERT_TRUE(SetEnvironmentVariableW(L"PATH", L"C:\\nowhere"));
    stop();
    EXPECT_FALSE(standin.running());
    SetEnvironmentVariableW(L"PATH", before.c_str());
}

} // namespace
