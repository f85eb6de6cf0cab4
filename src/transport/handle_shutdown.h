#pragma once

#include <uv.h>

namespace transport {

/// Closes a libuv handle through its owner, if it has one, while its loop shuts down. A handle that is closing already is
/// left to libuv: closing it again would free memory that libuv still holds. Loop thread.
void closeForShutdown(uv_handle_t* handle);

} // namespace transport
