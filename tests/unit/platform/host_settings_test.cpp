#include "platform/host_settings.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <windows.h>

namespace {

void hostsHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int, uintptr_t) {}

void otherHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int, uintptr_t) {}

TEST(HostSettings, ErrorModeAndInvalidParameterHandlerArePutBack) {
    SetErrorMode(SEM_NOOPENFILEERRORBOX);
    const UINT mode = GetErrorMode();
    _set_invalid_parameter_handler(hostsHandler);
    {
        const platform::HostSettingsGuard guard;
        SetErrorMode(mode | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
        _set_invalid_parameter_handler(otherHandler);
    }
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(_get_invalid_parameter_handler(), &hostsHandler);
    _set_invalid_parameter_handler(nullptr);
}

TEST(HostSettings, GuardThatSawNoChangeChangesNothing) {
    const UINT mode = GetErrorMode();
    { const platform::HostSettingsGuard guard; }
    EXPECT_EQ(GetErrorMode(), mode);
}

} // namespace
