#pragma once

namespace platform {

/// The process's standard output, as a screen and as a stream.
class Console {
public:
    virtual ~Console() = default;

    /// Prints the text in a colour and restores the screen's own; prints nothing and returns false when the standard
    /// output is not a screen. attribute: the sum of 1 for blue, 2 for green and 4 for red. Calls must not overlap.
    virtual bool printColoured(unsigned attribute, const char* text) = 0;

    /// Prints the text to the standard output, wherever it leads. Thread: any.
    virtual void print(const char* text) = 0;
};

/// The system's console. Lives until the process ends.
Console& systemConsole();

} // namespace platform
