#include "platform/host_settings.h"

#include <cstdint>
#include <stdlib.h>
#include <windows.h>

namespace platform {

static_assert(sizeof(uintptr_t) == sizeof(unsigned long long));

HostSettingsGuard::HostSettingsGuard()
    : mErrorMode(GetErrorMode()), mInvalidParameterHandler(_get_invalid_parameter_handler()) {}

HostSettingsGuard::~HostSettingsGuard() {
    SetErrorMode(mErrorMode);
    _set_invalid_parameter_handler(mInvalidParameterHandler);
}

} // namespace platform
