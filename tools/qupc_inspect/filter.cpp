#include "filter.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "oracle/commands.h"

namespace inspect {

namespace {

std::optional<std::uint16_t> numberOf(const std::string& text) {
    std::uint16_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return stop == end && error == std::errc() ? std::optional(number) : std::nullopt;
}

[[noreturn]] void expected(const char* what, const std::string& found) {
    throw std::invalid_argument(fmt::format("expected {}, found \"{}\"", what, found));
}

} // namespace

Filter::Filter(const std::string& text) {
    std::istringstream conditions(text);
    for (std::string one; std::getline(conditions, one, ',');) {
        add(one);
    }
}

void Filter::add(const std::string& condition) {
    const std::size_t equals = std::min(condition.find('='), condition.size());
    const std::string name = condition.substr(0, equals);
    const std::string value = condition.substr(std::min(equals + 1, condition.size()));
    if (name == "from" && (value == "host" || value == "service")) {
        mFrom = value == "host" ? Side::Host : Side::Service;
    } else if (name == "command") {
        mCommand = numberOf(value);
        mCommand = mCommand ? mCommand : oracle::commandOf(value);
        if (!mCommand) {
            expected("the name of a command or its number", value);
        }
    } else if (name == "seq" && numberOf(value)) {
        mSequence = numberOf(value);
    } else if (name == "key" && !value.empty()) {
        mKeys.push_back(value);
    } else if (condition == "malformed") {
        mMalformed = true;
    } else {
        expected("from=host, from=service, command=, key=, seq= or malformed", condition);
    }
}

bool Filter::lets(const Item& item) const {
    const bool wantsPacket = mCommand || mSequence || !mKeys.empty();
    if (!item.mark.empty()) {
        return !wantsPacket && !mFrom && !mMalformed;
    }
    if ((mFrom && *mFrom != item.from) || (wantsPacket && !item.isPacket) ||
        (mCommand && *mCommand != item.packet.command) || (mSequence && *mSequence != item.packet.sequence) ||
        (mMalformed && !firstFault(item))) {
        return false;
    }
    const std::vector<Row> rows = mKeys.empty() ? std::vector<Row>() : rowsOf(item);
    return std::all_of(mKeys.begin(), mKeys.end(), [&](const std::string& key) {
        return std::any_of(rows.begin(), rows.end(),
                           [&](const Row& row) { return !row.fault && row.entry.key == key; });
    });
}

} // namespace inspect
