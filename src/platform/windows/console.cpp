#include "platform/console.h"

#include <windows.h>

#include <cstring>

namespace platform {

namespace {

// Bypasses the C runtime's stream, whose lock the host shares: exit() takes it, and would wait for a writer that prints
// line after line on a slow screen, or for good when nobody reads the pipe that the output leads to
// (HostOutput.UnreadPipeDoesNotHoldTheHostsEnd).
void writeText(HANDLE output, const char* text) {
    DWORD written = 0;
    WriteFile(output, text, static_cast<DWORD>(std::strlen(text)), &written, nullptr);
}

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
        writeText(output, text);
        SetConsoleTextAttribute(output, before.wAttributes);
        return true;
    }

    void print(const char* text) override {
        const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
        if (output != nullptr && output != INVALID_HANDLE_VALUE) {
            writeText(output, text);
        }
    }
};

} // namespace

Console& systemConsole() {
    static Console& console =
        *new WindowsConsole; // never destroyed: the writer thread prints until the process ends
    return console;
}

} // namespace platform
