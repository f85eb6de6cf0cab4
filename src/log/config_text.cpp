#include "log/config_text.h"

#include "log/log_level.h"

#include <algorithm>
#include <charconv>

namespace orvel::log4z {

namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

std::string_view trimmedOf(std::string_view text, std::string_view unwanted) {
    const std::size_t first = text.find_first_not_of(unwanted);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(unwanted) - first + 1);
}

/// Reads one text; holds the state between its lines.
class Parser {
public:
    ConfigText parse(std::string_view text) {
        while (!text.empty()) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            ++mLine;
            readLine(trimmed(text.substr(0, end)));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        return std::move(mResult);
    }

private:
    enum class State { NoSection, InSection, InDuplicate };

    void readLine(std::string_view line) {
        if (line.empty() || line.front() == '#') {
            return;
        }
        if (line.front() == '[') {
            openSection(trimmedOf(line, "[]"));
            return;
        }
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos) {
            readPair(lowerCase(trimmed(line.substr(0, equals))),
                     std::string(trimmed(line.substr(equals + 1))));
        }
    }

    void openSection(std::string_view text) {
        // Kept for compatibility: "main" in any letter case is the logger "Main". Configurations write it in lower
        // case, and their settings would go to another logger than the one of that key.
        std::string name(lowerCase(text) == "main" ? std::string_view("Main") : text);
        const auto& known = mResult.sections;
        if (std::any_of(known.begin(), known.end(),
                        [&](const auto& section) { return section.name == name; })) {
            mResult.warnings.push_back("log4z configure warning: duplicate logger key:[" + name +
                                       "] at line: " + std::to_string(mLine) + " \r\n");
            mState = State::InDuplicate;
            return;
        }
        mResult.sections.push_back({std::move(name), {}});
        mState = State::InSection;
    }

    void readPair(std::string key, std::string value) {
        if (mState == State::NoSection) {
            mResult.warnings.push_back("log4z configure warning: not found current logger name:[] at line:" +
                                       std::to_string(mLine) + ", key=" + key + ", value=" + value + " \r\n");
        } else if (mState == State::InSection) {
            mResult.sections.back().pairs.emplace_back(std::move(key), std::move(value));
        }
    }

    ConfigText mResult;
    State mState = State::NoSection;
    int mLine = 0;
};

} // namespace

ConfigText parseConfigText(std::string_view text) {
    return Parser().parse(text);
}

std::uint32_t configChecksum(std::string_view text) {
    std::uint32_t sum = 0;
    for (const char c : text) {
        sum += static_cast<unsigned char>(c);
    }
    return sum;
}

bool configFlag(std::string_view value) {
    return value != "false" && value != "0";
}

bool configLevel(std::string_view value, int& level) {
    static constexpr std::pair<std::string_view, int> kWords[] = {
        {"trace", kLevelTrace},  {"debug", kLevelDebug}, {"info", kLevelInfo},   {"warn", kLevelWarn},
        {"warning", kLevelWarn}, {"error", kLevelError}, {"alarm", kLevelAlarm}, {"fatal", kLevelFatal},
    };
    for (const auto& [word, number] : kWords) {
        if (word == value) {
            level = number;
            return true;
        }
    }
    return false;
}

bool configNumber(std::string_view value, std::int64_t& number) {
    std::int64_t read = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), read);
    if (error != std::errc() || end != value.data() + value.size()) {
        return false;
    }
    number = read;
    return true;
}

std::string_view trimmed(std::string_view text) {
    return trimmedOf(text, "\r\n\t ");
}

} // namespace orvel::log4z
