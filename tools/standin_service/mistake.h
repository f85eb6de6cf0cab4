// What is wrong with a scenario, and where: in the form of a compiler's message.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace standin {

struct Mistake {
    std::size_t line = 0;
    std::size_t column = 0; // from 1; counts bytes
    std::string text;       // what was expected, what stood there instead, and what may have been meant

    // "name:line:column: text"
    std::string describe(std::string_view name) const;
};

// Thrown inside the parser only; parseScenario turns it into Scenario::mistake.
class ScenarioError : public std::runtime_error {
public:
    ScenarioError(std::size_t column, const std::string& text) : std::runtime_error(text), mColumn(column) {}

    std::size_t column() const { return mColumn; }

private:
    std::size_t mColumn;
};

// `; did you mean "repeat"?` when one of the words is close to `word`, else nothing.
std::string suggestion(std::string_view word, const std::vector<std::string>& words);

// `"a", "b" or "c"`
std::string listed(const std::vector<std::string>& words);

} // namespace standin
