#pragma once

#include "log/console.h"
#include "platform/clock.h"
#include "platform/file_system.h"

namespace orvel::log4z {

/// What a logger's files are made with. All three outlive them.
struct FileServices {
    platform::Clock& clock;
    platform::FileSystem& files;
    ConsoleEcho& console;
};

} // namespace orvel::log4z
