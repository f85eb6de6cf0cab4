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
