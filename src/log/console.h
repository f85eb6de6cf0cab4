#pragma once

#include "log/printf_format.h"
#include "log/sync_helpers.h"
#include "platform/console.h"

namespace orvel::log4z {

/// Prints lines and the manager's own messages on the host's console. Never throws. Thread: any.
class ConsoleEcho {
public:
    explicit ConsoleEcho(platform::Console& console) : mConsole(console) {}

    /// Prints a line. Levels from INFO up appear in their colour, and not at all when the standard output is not a
    /// screen; the others are printed without colour, wherever the standard output leads.
    void show(int level, const char* text);

    /// Prints to the standard output, wherever it leads, as printf does.
    void print(const char* format, ...) SONVIA_PRINTF_FORMAT(2, 3);

    /// A message of the manager itself, in the colour of FATAL.
    void report(const char* format, ...) SONVIA_PRINTF_FORMAT(2, 3);

private:
    platform::Console& mConsole;
    LockHelper mLock; ///< one thread at a time sets a colour, prints and restores the colour
};

} // namespace orvel::log4z
