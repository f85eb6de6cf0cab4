#pragma once

#include "api/audio_service_handle.h"

#include <memory>

/// Keeps the records of the last released handles, empty as they are: a host that releases a handle twice, or uses it
/// after that, meets a record that says so, and not memory that belongs to a later session. Thread: any; needs no memory.
void keepReleased(std::unique_ptr<AudioServiceHandle> handle) noexcept;
