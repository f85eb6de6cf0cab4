// What only a Windows host can see: the command line of the service, and what the library leaves of its process.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <windows.h>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

class WindowsHost : public support::ServiceTest {};

TEST_F(WindowsHost, LogFolderIsCutAt255CharactersOnTheServicesCommandLine) {
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

} // namespace
