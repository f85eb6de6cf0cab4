// The lowest layer of the scenario grammar: a line cut into words, and words read as numbers or bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mistake.h"
#include "scenario.h"

namespace standin {

struct Word {
    std::string text;
    std::size_t column = 0; // from 1
};

// Words are separated by blanks; a word in double quotes may hold blanks and the escapes \" \\ \n \t \xHH;
// "#" outside quotes starts a comment.
std::vector<Word> splitWords(std::string_view line);

// The words of one line, taken from the front. Every read throws ScenarioError when the word is missing or
// wrong.
class WordReader {
public:
    WordReader() = default;
    explicit WordReader(std::string_view line);

    bool atEnd() const { return mNext == mWords.size(); }

    // Of the word that was taken last.
    std::size_t lastColumn() const { return mNext == 0 ? 1 : mWords[mNext - 1].column; }

    // `what` says in messages what the word is.
    std::string word(const char* what);

    Text text(const char* what) { return {word(what)}; }

    Number number(const char* what);
    std::int64_t plainNumber(const char* what);
    // A number, or the name of a command.
    Number command();
    // All remaining words, as hexadecimal digits in pairs.
    oracle::Bytes hexBytes();
    // Takes the next word if it is `expected`.
    bool accept(std::string_view expected);
    void expectEnd() const;
    // "expected <what>, found ...", at the next word. `words` are those that would do.
    [[noreturn]] void fail(const std::string& what, const std::vector<std::string>& words = {}) const;

private:
    std::vector<Word> mWords;
    std::size_t mNext = 0;
    std::size_t mEndColumn = 1;
    std::vector<std::string> mOffered; // what accept() was asked for since a word was taken
};

} // namespace standin
