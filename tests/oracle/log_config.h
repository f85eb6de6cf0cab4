#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What configuration texts make of the loggers, by a plain reading of its own.
namespace oracle {

struct LoggerSettings {
    std::string key;
    std::string name;
    std::string path = "./sonvialog/";
    int level = 1;
    bool display = true;
    bool outfile = true;
    bool monthdir = false;
    bool fileline = true;
    bool enable = true;
    std::uint32_t limitMb = 2;
    std::int64_t reserve = 0;
};

class ConfiguredLoggers {
public:
    /// Returns whether the text counts as applied.
    bool apply(const std::string& text);

    std::vector<LoggerSettings> loggers;
    std::vector<std::string> messages; ///< all that was reported in colour

private:
    void applyPair(LoggerSettings& logger, const std::string& key, const std::string& value);
    int logger(const std::string& section);

    std::uint32_t mSum = 0;
};

} // namespace oracle
