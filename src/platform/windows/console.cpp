#include "platform/console.h"

#include <windows.h>

#include <cstdio>

namespace platform {

namespace {

class WindowsConsole final : public Console {
public:
    bool printColoured(unsigned attribute, const char* text) override {
        const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
        CONSOLE_SCREEN_BUFFER_INFO before;
        if (output == nullptr || output == INVALID_HANDLE_VALUE ||
            GetConsoleScreenBufferInfo(output, &before) == FALSE) {
            return false;
        }
        SetConsoleTextAttribute(output, static_cast<WORD>(attribute));
        std::printf("%s", text);
        std::fflush(stdout); // before the colour changes back
        SetConsoleTextAttribute(output, before.wAttributes);
        return true;
    }

    void print(const char* text) override { std::printf("%s", text); }
};

} // namespace

Console& systemConsole() {
    static Console& console = *new WindowsConsole; // never destroyed: the writer thread prints until the end
    return console;
}

} // namespace platform
