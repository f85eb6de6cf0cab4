#pragma once

namespace platform {

/// Remembers the settings of the whole process that a library's first use changes (on Windows the error mode
/// and the C runtime's invalid-parameter handler) and puts them back when it goes out of scope. The process
/// is the host's, not ours.
class HostSettingsGuard {
public:
    HostSettingsGuard();
    ~HostSettingsGuard();
    HostSettingsGuard(const HostSettingsGuard&) = delete;
    HostSettingsGuard& operator=(const HostSettingsGuard&) = delete;

private:
    [[maybe_unused]] unsigned int mErrorMode = 0;
    [[maybe_unused]] void (*mInvalidParameterHandler)(const wchar_t*, const wchar_t*, const wchar_t*,
                                                      unsigned int, unsigned long long) = nullptr;
};

} // namespace platform
