// What a test prints to the standard output, kept for it to look at.
#pragma once

#include <string>

namespace support {

/// Captures the process's standard output from its construction until end(), from every thread. One at a time. A failure
/// meanwhile is shown on the real output all the same, and after a test's first failure come the last lines of what was
/// captured. Its file has no name, or is deleted with its last handle, however the process ends.
class OutputCapture {
public:
    OutputCapture();
    ~OutputCapture();
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    /// Ends the capture. What was printed, with line ends as on POSIX; empty when it had ended before.
    std::string end();
};

} // namespace support
