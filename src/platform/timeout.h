#pragma once

namespace platform {

/// As the timeout of a wait, in milliseconds: without limit.
inline constexpr unsigned kNoTimeout = 0xFFFFFFFF;

} // namespace platform
