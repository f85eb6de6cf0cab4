// The walk over a payload in one run, which dispatch uses; the index of a chain is tested by its own file.

#include "protocol/entry_walk.h"
#include "unit/protocol/wire_bytes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

using wire::Bytes;

TEST(EntryWalk, VisitsEveryEntryWithThePlaceOfItsType) {
    const Bytes payload =
        wire::join({wire::intEntry("a", 1), wire::textEntry("bc", "x"), wire::intEntry("a", 2)});
    SpanReader reader(payload.data(), payload.size());
    std::vector<std::string> keys;
    std::vector<std::int32_t> numbers;
    walkEntries(
        reader,
        [&](std::string_view key, std::uint32_t typeOffset) {
            keys.emplace_back(key);
            bool ok = false;
            const std::int32_t number = EntryView(payload.data(), payload.size(), typeOffset).getInt(ok);
            if (ok) {
                numbers.push_back(number);
            }
        },
        [] { return true; });
    EXPECT_EQ(keys, (std::vector<std::string>{"a", "bc", "a"}));
    EXPECT_EQ(numbers, (std::vector<std::int32_t>{1, 2}));
}

TEST(EntryWalk, GivesUpWithinAFewThousandEntries) {
    Bytes payload;
    for (int entry = 0; entry < 20000; ++entry) {
        payload.insert(payload.end(), {0, 15}); // no key, a type without a value
    }
    SpanReader reader(payload.data(), payload.size());
    int asked = 0;
    walkEntries(
        reader, [](std::string_view, std::uint32_t) {}, [&asked] { return ++asked < 2; });
    EXPECT_EQ(asked, 2);
    EXPECT_LT(reader.consumed, payload.size() / 2);
}

TEST(EntryWalk, TextThatThePayloadCutsOffIsNotRead) {
    const Bytes whole = wire::textEntry("k", "text");
    for (std::size_t size = 2; size < whole.size(); ++size) {
        bool ok = true;
        EXPECT_EQ(EntryView(whole.data(), size, 2).getText(ok), "");
        EXPECT_FALSE(ok) << size;
    }
}
