#pragma once

namespace platform {

/// Names the calling thread for debuggers and crash reports. Best effort: does nothing where the system cannot (Windows
/// 10 before version 1607), and Linux keeps the first 15 characters.
///
/// name: ASCII, NUL-terminated, not kept. Thread: any. Blocks: never.
void nameThisThread(const char* name);

} // namespace platform
