// The tests' own reading of a payload: what it lets pass, no test would notice.

#include "unit/protocol/wire_bytes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

using wire::Bytes;
using wire::Entry;

TEST(WireBytes, PayloadCutAnywhereInsideAnEntryGivesTheEntriesBeforeItAndASignOfTheCut) {
    const Entry first{"a", wire::kTypeByte, {7}};
    const Entry cut{"<cut>", 0, {}};
    const Bytes start = wire::entry(first);
    for (const std::uint8_t type :
         {wire::kTypeByte, wire::kTypeInt, std::uint8_t{8}, wire::kTypeNested, wire::kTypeText}) {
        const bool isFixed = wire::layoutOf(type).lengthWidth == 0;
        const Entry second{"key", type, Bytes(isFixed ? wire::layoutOf(type).fixedWidth : 5U, 9)};
        const Bytes whole = wire::join({start, wire::entry(second)});
        EXPECT_EQ(wire::entriesOf(whole), (std::vector<Entry>{first, second})) << +type;
        for (std::size_t size = start.size() + 1; size < whole.size(); ++size) {
            const Bytes payload(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(wire::entriesOf(payload), (std::vector<Entry>{first, cut})) << +type << ", " << size;
        }
    }
}
