#include "support/log_capture.h"

#include <cstdlib>
#include <ostream>
#include <sstream>

namespace support {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.letter << ' ' << line.tag << ": [" << line.function << ":" << line.line << "]"
               << line.text;
}

std::vector<LogLine> LogCapture::lines() {
    return parseLogLines(mOutput.end());
}

std::vector<LogLine> LogCapture::lines(const std::string& tag) {
    std::vector<LogLine> wanted;
    for (const LogLine& line : lines()) {
        if (line.tag == tag) {
            wanted.push_back(line);
        }
    }
    return wanted;
}

std::vector<std::string> LogCapture::texts() {
    std::vector<std::string> found;
    for (const LogLine& line : lines()) {
        const std::string bracket = line.function.empty() ? "" : "[" + line.function + ":line]";
        found.push_back(std::string(1, line.letter) + ' ' + line.tag + ": " + bracket + line.text);
    }
    return found;
}

namespace {

/// "[tid] L tag: message"; false for anything else, such as a line of the test framework's own.
bool splitPrefix(const std::string& text, LogLine& line) {
    const std::size_t letter = text.find("] ") + 2;
    if (text.empty() || text[0] != '[' || letter == 1 || letter + 2 >= text.size() ||
        text.find_first_not_of("0123456789", 1) != letter - 2 ||
        std::string("DIWE").find(text[letter]) == std::string::npos || text[letter + 1] != ' ') {
        return false;
    }
    const std::size_t colon = text.find(": ", letter + 2);
    if (colon == std::string::npos) {
        return false;
    }
    line.letter = text[letter];
    line.tag = text.substr(letter + 2, colon - letter - 2);
    line.text = text.substr(colon + 2);
    return true;
}

/// Takes "[function:line]" off the front of the message, if it is there.
void splitBracket(LogLine& line) {
    const std::size_t end = line.text.find(']');
    const std::size_t colon = line.text.rfind(':', end);
    if (line.text.empty() || line.text[0] != '[' || end == std::string::npos || colon == std::string::npos ||
        line.text.find_first_not_of("0123456789", colon + 1) != end) {
        return;
    }
    line.function = line.text.substr(1, colon - 1);
    line.line = std::atoi(line.text.c_str() + colon + 1);
    line.text = line.text.substr(end + 1);
}

} // namespace

std::vector<LogLine> parseLogLines(const std::string& output) {
    std::vector<LogLine> lines;
    std::istringstream stream(output);
    std::string text;
    while (std::getline(stream, text)) {
        LogLine line;
        if (splitPrefix(text, line)) {
            splitBracket(line);
            lines.push_back(line);
        }
    }
    return lines;
}

} // namespace support
