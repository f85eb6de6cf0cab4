// Hosts with and without a console, with a standard output that is closed, and with one that nobody reads.
#include <string>

#include <windows.h>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

constexpr const char* kOneEvent = "wait packet key KORUInfo\nnotify int buffering-start 1\n";
// Of a host whose current folder is the test's.
constexpr const char* kLogFolder = "logs/host";
constexpr DWORD kDidNotEnd = 0xFFFFFFFF;

class HostOutput : public testing::Test {
protected:
    void SetUp() override { support::enterTestFolder(); }

    // Runs a host of the tests with these creation flags and this standard output. Returns its exit code.
    static DWORD run(const std::string& host, const std::wstring& words, DWORD flags, HANDLE output) {
        std::wstring line = L"\"" + (support::programFolder() / (host + ".exe")).wstring() + L"\" " + words;
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output;
        PROCESS_INFORMATION process = {};
        if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr, &startup,
                           &process) == FALSE) {
            throw std::runtime_error("cannot start the host: " + std::to_string(GetLastError()));
        }
        const auto timeout = static_cast<DWORD>(std::chrono::milliseconds(support::kProcessTimeout).count());
        DWORD code = kDidNotEnd;
        if (WaitForSingleObject(process.hProcess, timeout) == WAIT_OBJECT_0) {
            GetExitCodeProcess(process.hProcess, &code);
        } else {
            TerminateProcess(process.hProcess, 1);
        }
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return code;
    }

    // A session from init to uninit, as a host sees it from its first call to its exit code.
    void expectWholeLife(DWORD flags, HANDLE output) {
        const int times = support::rounds(1, 10);
        for (int i = 0; i < times; ++i) {
            standin.play(kOneEvent);
            EXPECT_EQ(run("host_child", L"whole-life", flags, output), 0U);
            EXPECT_EQ(standin.packets(support::kStop).size(), 1U);
            EXPECT_NE(support::logText(kLogFolder).find("exit thread!"), std::string::npos)
                << "the log's writer is held";
        }
        support::tried("hostile host: console and standard output", times, "processes");
    }

    support::Standin standin;
};

TEST_F(HostOutput, DetachedHostHasNoConsole) {
    expectWholeLife(DETACHED_PROCESS, nullptr);
}

TEST_F(HostOutput, HostMayHaveAConsoleWithoutAWindow) {
    expectWholeLife(CREATE_NO_WINDOW, nullptr);
}

TEST_F(HostOutput, HostMayHaveAConsoleOfItsOwn) {
    expectWholeLife(CREATE_NEW_CONSOLE, nullptr);
}

TEST_F(HostOutput, StandardOutputMayBeNoHandleAtAll) {
    expectWholeLife(0, INVALID_HANDLE_VALUE);
}

TEST_F(HostOutput, StandardOutputMayBeClosed) {
    HANDLE closed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CloseHandle(closed);
    expectWholeLife(0, closed);
}

TEST_F(HostOutput, StandardOutputMayBeAPipeWhoseReaderHasGone) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    ASSERT_TRUE(CreatePipe(&reader, &writer, &inherited, 0));
    CloseHandle(reader);
    expectWholeLife(0, writer);
    CloseHandle(writer);
}

// The log's writer is in the middle of a line that the pipe does not accept.
TEST_F(HostOutput, UnreadPipeDoesNotHoldTheHostsEnd) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    int ends = 0;
    for (const wchar_t* way : {L"main", L"exit", L"_exit", L"system", L"free"}) {
        HANDLE reader = nullptr;
        HANDLE writer = nullptr;
        ASSERT_TRUE(CreatePipe(&reader, &writer, &inherited, 4096));
        standin.play("wait packet key KORUInfo\nrepeat forever\n notify int buffering-start 1\nend\n");
        EXPECT_EQ(run("host_ends", std::wstring(L"flooded ") + way + L" 61", 0, writer), 61U);
        CloseHandle(reader);
        CloseHandle(writer);
        ++ends;
    }
    support::tried("hostile host: ends with an unread standard output", ends, "processes");
}

} // namespace
