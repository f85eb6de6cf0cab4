#include "mistake.h"

#include <algorithm>
#include <numeric>

namespace standin {

namespace {

// How many letters must be put in, left out, replaced or swapped with their neighbour to make one word of the other.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> table(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    std::iota(table[0].begin(), table[0].end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        table[i][0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = table[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            table[i][j] = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
            }
        }
    }
    return table[a.size()][b.size()];
}

} // namespace

std::string Mistake::describe(std::string_view name) const {
    return std::string(name) + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + text;
}

std::string suggestion(std::string_view word, const std::vector<std::string>& words) {
    const auto best = std::min_element(words.begin(), words.end(), [&](const auto& a, const auto& b) {
        return distance(word, a) < distance(word, b);
    });
    if (best == words.end() || distance(word, *best) > 1 + best->size() / 4) {
        return {};
    }
    return "; did you mean \"" + *best + "\"?";
}

std::string listed(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t index = 0; index < words.size(); ++index) {
        text += index == 0 ? "" : index + 1 == words.size() ? " or " : ", ";
        text += "\"" + words[index] + "\"";
    }
    return text;
}

} // namespace standin
