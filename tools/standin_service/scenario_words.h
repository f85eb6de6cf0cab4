// The lowest layer of the scenario grammar: a line cut into words, and words read as numbers or bytes.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace standin {

// Thrown inside the parser only; parseScenario turns it into Scenario::error.
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Words are separated by blanks; a word in double quotes may hold blanks and the escapes \" \\ \n \t \xHH;
// "#" outside quotes starts a comment.
std::vector<std::string> splitWords(std::string_view line);

// The words of one line, taken from the front. Every read throws ScenarioError when the word is missing or
// wrong.
class WordReader {
public:
    explicit WordReader(std::vector<std::string> words) : mWords(std::move(words)) {}

    bool atEnd() const { return mNext == mWords.size(); }

    std::string word(const char* what);

    Text text(const char* what) { return {word(what)}; }

    Number number(const char* what);
    std::int64_t plainNumber(const char* what);
    // All remaining words, as hexadecimal digits in pairs.
    std::string hexBytes();
    // Takes the next word if it is `expected`.
    bool accept(std::string_view expected);
    void expectEnd() const;

private:
    std::vector<std::string> mWords;
    std::size_t mNext = 0;
};

} // namespace standin
