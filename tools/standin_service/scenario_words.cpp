#include "scenario_words.h"

#include <charconv>
#include <optional>

#include "oracle/commands.h"

namespace standin {

namespace {

std::optional<std::uint8_t> byteOfHex(char high, char low) {
    const char digits[] = {high, low};
    std::uint8_t byte = 0;
    const auto result = std::from_chars(digits, digits + 2, byte, 16);
    return result.ec == std::errc() && result.ptr == digits + 2 ? std::optional(byte) : std::nullopt;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Reads the quoted word that starts after the opening quote at `at`; leaves `at` after the closing one.
std::string quotedWord(std::string_view line, std::size_t& at) {
    const std::size_t column = at;
    std::string word;
    while (at < line.size() && line[at] != '"') {
        if (line[at] != '\\') {
            word.push_back(line[at++]);
            continue;
        }
        if (at + 1 == line.size()) {
            at = line.size();
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
        } else if (const auto byte = escape == 'x' && at + 1 < line.size() ? byteOfHex(line[at], line[at + 1])
                                                                           : std::nullopt) {
            word.push_back(static_cast<char>(*byte));
            at += 2;
        } else {
            throw ScenarioError(at - 1,
                                "expected one of the escapes \\\" \\\\ \\n \\t \\xHH in a quoted text");
        }
    }
    if (at == line.size()) {
        throw ScenarioError(column, "expected a closing \" for this quoted text, found the end of the line");
    }
    ++at;
    return word;
}

// In decimal or hexadecimal, with a sign or without.
std::optional<std::int64_t> numberOf(const std::string& word) {
    const bool negative = !word.empty() && word[0] == '-';
    const bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const char* begin = word.data() + (negative ? 1 : 0) + (hex ? 2 : 0);
    const char* end = word.data() + word.size();
    std::int64_t value = 0;
    const auto result = std::from_chars(begin, end, value, hex ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end || begin == end || *begin == '-') {
        return std::nullopt;
    }
    return negative ? -value : value;
}

} // namespace

std::vector<Word> splitWords(std::string_view line) {
    std::vector<Word> words;
    std::size_t at = 0;
    while (at < line.size()) {
        const std::size_t column = at + 1;
        if (isBlank(line[at])) {
            ++at;
        } else if (line[at] == '#') {
            break;
        } else if (line[at] == '"') {
            words.push_back({quotedWord(line, ++at), column});
        } else {
            const std::size_t start = at;
            while (at < line.size() && !isBlank(line[at]) && line[at] != '#') {
                ++at;
            }
            words.push_back({std::string(line.substr(start, at - start)), column});
        }
    }
    return words;
}

WordReader::WordReader(std::string_view line) : mWords(splitWords(line)) {
    if (!mWords.empty()) {
        const Word& last = mWords.back();
        mEndColumn = last.column + last.text.size();
    }
}

void WordReader::fail(const std::string& what, const std::vector<std::string>& words) const {
    if (atEnd()) {
        throw ScenarioError(mEndColumn, "expected " + what + ", found the end of the line");
    }
    const Word& found = mWords[mNext];
    throw ScenarioError(found.column, "expected " + what + ", found \"" + found.text + "\"" +
                                          suggestion(found.text, words));
}

std::string WordReader::word(const char* what) {
    if (atEnd()) {
        fail(what);
    }
    mOffered.clear();
    return mWords[mNext++].text;
}

Number WordReader::number(const char* what) {
    if (!atEnd() && mWords[mNext].text.size() > 1 && mWords[mNext].text[0] == '$') {
        return {0, word(what).substr(1)};
    }
    return {plainNumber(what), {}};
}

std::int64_t WordReader::plainNumber(const char* what) {
    const std::optional<std::int64_t> value = atEnd() ? std::nullopt : numberOf(mWords[mNext].text);
    if (!value) {
        fail(std::string("a number (") + what + ")");
    }
    word(what);
    return *value;
}

Number WordReader::command() {
    const std::optional<std::uint16_t> known = atEnd() ? std::nullopt : oracle::commandOf(mWords[mNext].text);
    if (known) {
        word("command");
        return {*known, {}};
    }
    if (!atEnd() && mWords[mNext].text[0] != '$' && !numberOf(mWords[mNext].text)) {
        fail("a command's number or name", {"Notify", "StopPCAudioZLK"});
    }
    return number("command");
}

oracle::Bytes WordReader::hexBytes() {
    oracle::Bytes bytes;
    for (; !atEnd(); ++mNext) {
        const std::string& digits = mWords[mNext].text;
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            const auto byte = i + 1 < digits.size() ? byteOfHex(digits[i], digits[i + 1]) : std::nullopt;
            if (!byte) {
                fail("pairs of hexadecimal digits");
            }
            bytes.push_back(*byte);
        }
    }
    return bytes;
}

bool WordReader::accept(std::string_view expected) {
    if (atEnd() || mWords[mNext].text != expected) {
        mOffered.emplace_back(expected);
        return false;
    }
    ++mNext;
    mOffered.clear();
    return true;
}

void WordReader::expectEnd() const {
    if (atEnd()) {
        return;
    }
    std::string what;
    for (const std::string& offered : mOffered) {
        what += (what.empty() ? "\"" : ", \"") + offered + "\"";
    }
    fail(what + (what.empty() ? "the end of the line" : " or the end of the line"), mOffered);
}

} // namespace standin
