#include "platform/console.h"

#include <unistd.h>

#include <cstdio>

namespace platform {

namespace {

class PosixConsole final : public Console {
public:
    bool printColoured(unsigned attribute, const char* text) override {
        if (::isatty(STDOUT_FILENO) == 0) {
            return false;
        }
        // A terminal numbers its colours from the red end.
        const unsigned colour = ((attribute & 1u) << 2) | (attribute & 2u) | ((attribute & 4u) >> 2);
        std::printf("\033[3%um%s\033[0m", colour, text);
        std::fflush(stdout);
        return true;
    }

    void print(const char* text) override { std::printf("%s", text); }
};

} // namespace

Console& systemConsole() {
    static Console& console = *new PosixConsole; // never destroyed: the writer thread prints until the end
    return console;
}

} // namespace platform
