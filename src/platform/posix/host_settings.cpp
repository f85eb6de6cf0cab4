#include "platform/host_settings.h"

namespace platform {

// libuv changes no setting of the process here.
HostSettingsGuard::HostSettingsGuard() = default;
HostSettingsGuard::~HostSettingsGuard() = default;

} // namespace platform
