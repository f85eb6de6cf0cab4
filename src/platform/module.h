#pragma once

namespace platform {

/// Keeps the module that this code is part of in the process until the process ends. libuv registers console,
/// power and thread-pool callbacks that it never takes back, and the log's writer thread has no end: code
/// that they would run must not be unmapped by a host's FreeLibrary. Any thread; may be repeated.
void keepModuleLoaded();

} // namespace platform
