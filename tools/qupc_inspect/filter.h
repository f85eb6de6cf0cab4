#pragma once

#include <optional>
#include <string>
#include <vector>

#include "items.h"

namespace inspect {

/// The conditions of --filter, with commas between them, all of which an item must meet: "from=host", "command=Notify" or
/// its number, "key=phone-name" at any depth, "seq=3", "malformed".
class Filter {
public:
    Filter() = default;
    /// Throws std::invalid_argument with what was expected.
    explicit Filter(const std::string& text);

    bool lets(const Item& item) const;

private:
    void add(const std::string& condition);

    std::optional<Side> mFrom;
    std::optional<std::uint16_t> mCommand;
    std::optional<std::uint16_t> mSequence;
    std::vector<std::string> mKeys;
    bool mMalformed = false;
};

} // namespace inspect
