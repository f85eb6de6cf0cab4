// Effects on the host's process that there are on Windows alone.
#include <winsock2.h>

#include <windows.h>

#include "support/service_fixture.h"

namespace {

class WindowsEffects : public support::ServiceTest {
protected:
    void oneSession() {
        startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\n");
        ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
        stop();
    }
};

int heardByTheHost = 0;

BOOL WINAPI hostsControlHandler(DWORD event) {
    heardByTheHost += event == CTRL_BREAK_EVENT ? 1 : 0;
    return TRUE; // it ends here, and the process goes on
}

// The first test of this program: libuv's handler comes with the first session, and the younger one is asked first. The
// system's routine is called as the console calls it, on a thread of its own: without a display no console sends events.
TEST_F(WindowsEffects, ConsoleEventsStillReachTheHostsOwnHandler) {
    heardByTheHost = 0;
    ASSERT_NE(SetConsoleCtrlHandler(hostsControlHandler, TRUE), FALSE);
    oneSession();
    const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
    ASSERT_NE(routine, nullptr);
    const HANDLE thread =
        CreateThread(nullptr, 0, routine, reinterpret_cast<void*>(DWORD_PTR{CTRL_BREAK_EVENT}), 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 20000), WAIT_OBJECT_0);
    CloseHandle(thread);
    SetConsoleCtrlHandler(hostsControlHandler, FALSE);
    EXPECT_EQ(heardByTheHost, 1);
}

TEST_F(WindowsEffects, ModuleStaysMappedAfterTheLastFreeLibrary) {
    {
        support::HostLibrary library;
        const HMODULE module = GetModuleHandleW(L"SonviaPCAudioDll.dll");
        ASSERT_NE(module, nullptr);
    }
    oneSession();
    const HMODULE module = GetModuleHandleW(L"SonviaPCAudioDll.dll");
    for (int i = 0; i < 100; ++i) {
        FreeLibrary(module);
    }
    EXPECT_EQ(GetModuleHandleW(L"SonviaPCAudioDll.dll"), module);
    EXPECT_EQ(api.version(), 0);
}

TEST_F(WindowsEffects, TimersPriorityAndProcessorsAreLeftAsTheyWere) {
    const DWORD priority = GetPriorityClass(GetCurrentProcess());
    DWORD_PTR affinity = 0;
    DWORD_PTR system = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &affinity, &system);
    oneSession();
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), priority);
    DWORD_PTR affinityAfter = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &affinityAfter, &system);
    EXPECT_EQ(affinityAfter, affinity);
    EXPECT_EQ(GetModuleHandleW(L"winmm.dll"), nullptr)
        << "without it nothing changes the resolution of timers";
}

TEST_F(WindowsEffects, WinsockIsStartedAndNotEndedAgain) {
    oneSession();
    const SOCKET made = socket(AF_INET, SOCK_DGRAM, 0); // this program has not started Winsock itself
    EXPECT_NE(made, INVALID_SOCKET) << WSAGetLastError();
    closesocket(made);
}

} // namespace
