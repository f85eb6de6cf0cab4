#include "support/host_library.h"

namespace support {

const HostApi& hostApi() {
    static const auto* const kLibrary = new HostLibrary;
    return kLibrary->api();
}

} // namespace support
