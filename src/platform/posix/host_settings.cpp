#include "platform/host_settings.h"

namespace platform {

// libuv changes no setting of the process here.
HostSettingsGuard::HostSettingsGuard() {}

HostSettingsGuard::~HostSettingsGuard() {}

} // namespace platform
