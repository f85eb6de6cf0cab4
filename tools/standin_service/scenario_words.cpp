#include "scenario_words.h"

#include <charconv>

namespace standin {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    throw ScenarioError(std::string("not a hexadecimal digit: ") + c);
}

char byteOfHex(char high, char low) {
    return static_cast<char>(hexDigit(high) * 16 + hexDigit(low));
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Reads the quoted word that starts after the opening quote at `at`; leaves `at` behind the closing one.
std::string quotedWord(std::string_view line, std::size_t& at) {
    std::string word;
    while (at < line.size() && line[at] != '"') {
        if (line[at] != '\\') {
            word.push_back(line[at++]);
            continue;
        }
        if (at + 1 == line.size()) {
            break;
        }
        const char escape = line[at + 1];
        at += 2;
        if (escape == 'n') {
            word.push_back('\n');
        } else if (escape == 't') {
            word.push_back('\t');
        } else if (escape == '"' || escape == '\\') {
            word.push_back(escape);
        } else if (escape == 'x' && at + 1 < line.size()) {
            word.push_back(byteOfHex(line[at], line[at + 1]));
            at += 2;
        } else {
            throw ScenarioError("unknown escape in a quoted text");
        }
    }
    if (at == line.size()) {
        throw ScenarioError("a quoted text is not closed");
    }
    ++at;
    return word;
}

std::int64_t parseNumber(const std::string& word, const char* what) {
    const bool negative = !word.empty() && word[0] == '-';
    const bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const char* begin = word.data() + (negative ? 1 : 0) + (hex ? 2 : 0);
    const char* end = word.data() + word.size();
    std::int64_t value = 0;
    const auto result = std::from_chars(begin, end, value, hex ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end || begin == end || *begin == '-') {
        throw ScenarioError(std::string(what) + " is not a number: " + word);
    }
    return negative ? -value : value;
}

} // namespace

std::vector<std::string> splitWords(std::string_view line) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while (at < line.size()) {
        if (isBlank(line[at])) {
            ++at;
        } else if (line[at] == '#') {
            break;
        } else if (line[at] == '"') {
            words.push_back(quotedWord(line, ++at));
        } else {
            const std::size_t start = at;
            while (at < line.size() && !isBlank(line[at]) && line[at] != '#') {
                ++at;
            }
            words.emplace_back(line.substr(start, at - start));
        }
    }
    return words;
}

std::string WordReader::word(const char* what) {
    if (atEnd()) {
        throw ScenarioError(std::string(what) + " is missing");
    }
    return mWords[mNext++];
}

Number WordReader::number(const char* what) {
    const std::string text = word(what);
    if (text.size() > 1 && text[0] == '$') {
        return {0, text.substr(1)};
    }
    return {parseNumber(text, what), {}};
}

std::int64_t WordReader::plainNumber(const char* what) {
    return parseNumber(word(what), what);
}

std::string WordReader::hexBytes() {
    std::string bytes;
    while (!atEnd()) {
        const std::string digits = word("bytes");
        if (digits.size() % 2 != 0) {
            throw ScenarioError("odd count of hexadecimal digits: " + digits);
        }
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            bytes.push_back(byteOfHex(digits[i], digits[i + 1]));
        }
    }
    return bytes;
}

bool WordReader::accept(std::string_view expected) {
    if (atEnd() || mWords[mNext] != expected) {
        return false;
    }
    ++mNext;
    return true;
}

void WordReader::expectEnd() const {
    if (!atEnd()) {
        throw ScenarioError("unexpected word: " + mWords[mNext]);
    }
}

} // namespace standin
