#include "platform/module.h"

namespace platform {

// The native build is linked into its programs; there is nothing to unload.
void keepModuleLoaded() {}

} // namespace platform
