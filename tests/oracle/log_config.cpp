#include "oracle/log_config.h"

#include <cstring>
#include <map>
#include <set>

namespace oracle {

namespace {

constexpr std::size_t kMaxLoggers = 20;
constexpr std::size_t kMaxText = 8191;

std::string strip(std::string text, const char* unwanted) {
    const auto isUnwanted = [&](char c) { return c != '\0' && std::strchr(unwanted, c) != nullptr; };
    while (!text.empty() && isUnwanted(text.back())) {
        text.pop_back();
    }
    while (!text.empty() && isUnwanted(text.front())) {
        text.erase(0, 1);
    }
    return text;
}

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
    return text;
}

/// Texts go to the loggers as C strings.
std::string untilZero(const std::string& text) {
    return text.c_str();
}

/// Only whole numbers of 64 bits.
bool readNumber(const std::string& text, std::int64_t& value) {
    const bool isNegative = !text.empty() && text[0] == '-';
    const std::string digits = isNegative ? text.substr(1) : text;
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    std::uint64_t sum = 0;
    const std::uint64_t most = std::uint64_t{9223372036854775807u} + (isNegative ? 1 : 0);
    for (const char c : digits) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (sum > (most - digit) / 10) {
            return false;
        }
        sum = sum * 10 + digit;
    }
    value = static_cast<std::int64_t>(isNegative ? 0 - sum : sum);
    return true;
}

int levelOf(const std::string& word) {
    const std::map<std::string, int> words = {{"trace", 0},   {"debug", 1}, {"info", 2},  {"warn", 3},
                                              {"warning", 3}, {"error", 4}, {"alarm", 5}, {"fatal", 6}};
    const auto found = words.find(word);
    return found == words.end() ? -1 : found->second;
}

} // namespace

int ConfiguredLoggers::logger(const std::string& section) {
    const std::string key = strip("sonvia_" + untilZero(section), " \t\r\n");
    for (std::size_t i = 0; i < loggers.size(); ++i) {
        if (loggers[i].key == key) {
            return static_cast<int>(i);
        }
    }
    if (loggers.size() == kMaxLoggers) {
        messages.emplace_back(
            "log: CreateLogger can not create|writeover, because loggerid need < LOGGER_MAX! \r\n");
        return -1;
    }
    LoggerSettings fresh;
    fresh.key = fresh.name = key;
    loggers.push_back(fresh);
    return static_cast<int>(loggers.size()) - 1;
}

void ConfiguredLoggers::applyPair(LoggerSettings& logger, const std::string& key, const std::string& value) {
    const bool flag = value != "false" && value != "0";
    const std::string text = untilZero(value);
    const std::string folder =
        !text.empty() && (text.back() == '/' || text.back() == '\\') ? text : text + "/";
    std::int64_t read = 0;
    if (key == "path" && folder.size() <= kMaxText) {
        logger.path = folder;
    } else if (key == "name" && text.size() <= kMaxText) {
        logger.name = text;
    } else if (key == "level" && levelOf(value) >= 0) {
        logger.level = levelOf(value);
    } else if (key == "display") {
        logger.display = flag;
    } else if (key == "outfile") {
        logger.outfile = flag;
    } else if (key == "monthdir") {
        logger.monthdir = flag;
    } else if (key == "fileline") {
        logger.fileline = flag;
    } else if (key == "enable") {
        logger.enable = flag;
    } else if (key == "limitsize" && readNumber(value, read) && read >= 0 && read <= 4294967295) {
        logger.limitMb = read == 0 ? 4294967295u : static_cast<std::uint32_t>(read);
    } else if (key == "reserve" && readNumber(value, read)) {
        logger.reserve = read < 0 ? 0 : read > 2147483647 ? 2147483647 : read;
    }
}

bool ConfiguredLoggers::apply(const std::string& text) {
    std::uint32_t sum = 0;
    for (const char c : text) {
        sum += static_cast<unsigned char>(c);
    }
    if (sum == mSum) {
        return true;
    }

    // Warnings come before anything is applied, so the text is checked first.
    struct Pair {
        std::string section, key, value;
    };

    std::vector<Pair> pairs;
    std::vector<std::string> sections;
    std::set<std::string> seen;
    std::string state = "none";
    int lineNumber = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = strip(text.substr(begin, end - begin), " \t\r\n");
        begin = end + 1;
        ++lineNumber;
        const std::size_t equals = line.find('=');
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line[0] == '[') {
            std::string name = strip(line, "[]");
            name = lower(name) == "main" ? "Main" : name;
            state = seen.insert(name).second ? "in" : "duplicate";
            if (state == "in") {
                sections.push_back(name);
            } else {
                messages.push_back("log4z configure warning: duplicate logger key:[" + untilZero(name));
            }
        } else if (equals != std::string::npos) {
            const std::string key = lower(strip(line.substr(0, equals), " \t\r\n"));
            const std::string value = strip(line.substr(equals + 1), " \t\r\n");
            if (state == "in") {
                pairs.push_back({sections.back(), key, value});
            } else if (state == "none") {
                messages.push_back("log4z configure warning: not found current logger name:[] at line:" +
                                   std::to_string(lineNumber) + ", key=" + untilZero(key));
            }
        }
    }
    bool allMade = true;
    for (const std::string& section : sections) {
        const int id = logger(section);
        allMade = allMade && id >= 0;
        for (const Pair& pair : pairs) {
            if (id >= 0 && pair.section == section) {
                applyPair(loggers[static_cast<std::size_t>(id)], pair.key, pair.value);
            }
        }
    }
    if (allMade) {
        mSum = sum;
    }
    return allMade;
}

} // namespace oracle
