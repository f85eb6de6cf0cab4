// What numbers and texts of a scenario come to inside its repeat blocks.
#include "scenario.h"

namespace standin {

std::int64_t Number::value(const Counters& counters) const {
    if (counter.empty()) {
        return literal;
    }
    const auto found = counters.find(counter);
    return found == counters.end() ? 0 : found->second;
}

std::string Text::value(const Counters& counters) const {
    std::string out;
    std::size_t at = 0;
    while (true) {
        const std::size_t open = pattern.find("${", at);
        const std::size_t close = open == std::string::npos ? open : pattern.find('}', open);
        if (close == std::string::npos) {
            return out.append(pattern, at);
        }
        out.append(pattern, at, open - at);
        out.append(std::to_string(Number{0, pattern.substr(open + 2, close - open - 2)}.value(counters)));
        at = close + 1;
    }
}

} // namespace standin
