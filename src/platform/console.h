#pragma once

namespace platform {

/// The process's standard output, as a screen and as a stream.
class Console {
public:
    virtual ~Console() = default;

    /// Prints the text in a colour and puts the screen's colour back; prints nothing and returns false when the
    /// standard output is not a screen. attribute: 1 blue, 2 green, 4 red, added up. Calls must not overlap.
    virtual bool printColoured(unsigned attribute, const char* text) = 0;

    /// Prints the text to the standard output as it is, wherever that leads. Thread: any.
    virtual void print(const char* text) = 0;
};

/// The system's console. Lives until the process ends.
Console& systemConsole();

} // namespace platform
