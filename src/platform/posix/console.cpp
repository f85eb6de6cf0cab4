#include "platform/console.h"

#include <unistd.h>

#include <string_view>

namespace platform {

namespace {

// Bypasses the C library's stream, as on Windows and for the same reason.
void writeText(std::string_view text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (count <= 0) {
            return; // GCOVR_EXCL_LINE the standard output refuses the text: seen on Windows, the product
        }
        done += static_cast<std::size_t>(count);
    }
}

class PosixConsole final : public Console {
public:
    bool printColoured(unsigned attribute, const char* text) override {
        if (::isatty(STDOUT_FILENO) == 0) {
            return false;
        }
        // A terminal counts red as 1 and blue as 4.
        // GCOVR_EXCL_START Tests write into files and pipes, not on a terminal.
        const unsigned colour = ((attribute & 1U) << 2) | (attribute & 2U) | ((attribute & 4U) >> 2);
        const char begin[] = {'\033', '[', '3', static_cast<char>('0' + colour), 'm'};
        writeText({begin, sizeof begin});
        writeText(text);
        writeText("\033[0m");
        return true;
        // GCOVR_EXCL_STOP
    }

    void print(const char* text) override { writeText(text); }
};

} // namespace

Console& systemConsole() {
    static Console& console =
        *new PosixConsole; // never destroyed: the writer thread prints until the process ends
    return console;
}

} // namespace platform
