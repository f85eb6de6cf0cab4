#include "oracle/entries.h"
#include "protocol/payload_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using oracle::Bytes;
using protocol::PayloadIndex;

namespace {

Bytes numberedEntries(const std::vector<std::string>& keys) {
    Bytes payload;
    for (std::size_t index = 0; index < keys.size(); ++index) {
        const Bytes entry = oracle::encodeInt(keys[index], static_cast<std::int32_t>(index));
        payload.insert(payload.end(), entry.begin(), entry.end());
    }
    return payload;
}

std::optional<std::int32_t> intAt(const PayloadIndex& index, const std::string& key) {
    const protocol::EntryView* entry = index.find(key);
    return entry != nullptr ? entry->getInt() : std::nullopt;
}

} // namespace

TEST(PayloadIndex, FindsEveryEntryOfFewAndOfMany) {
    std::mt19937 random(3);
    for (std::size_t count = 0; count < 40; ++count) {
        std::vector<std::string> keys;
        for (std::size_t key = 0; key < count; ++key) {
            keys.push_back("key" + std::to_string(key * 7919 % 40));
        }
        std::shuffle(keys.begin(), keys.end(), random);
        const Bytes payload = numberedEntries(keys);
        const PayloadIndex index(payload.data(), payload.size());
        for (std::size_t key = 0; key < count; ++key) {
            EXPECT_EQ(intAt(index, keys[key]), static_cast<std::int32_t>(key)) << count;
        }
        EXPECT_EQ(index.find("missing"), nullptr);
        EXPECT_EQ(index.find(""), nullptr);
    }
}

TEST(PayloadIndex, OfEntriesWithOneKeyTheLastIsFoundAmongFewAndAmongMany) {
    for (std::size_t count = 1; count < 40; ++count) {
        std::vector<std::string> keys(count, "same");
        keys.insert(keys.begin() + static_cast<std::ptrdiff_t>(count / 2), "other");
        const Bytes payload = numberedEntries(keys);
        const PayloadIndex index(payload.data(), payload.size());
        EXPECT_EQ(intAt(index, "same"), static_cast<std::int32_t>(count));
        EXPECT_EQ(intAt(index, "other"), static_cast<std::int32_t>(count / 2));
    }
}

TEST(PayloadIndex, KeysThatBeginAlikeAreDistinguished) {
    const Bytes payload = numberedEntries({"a", std::string("a\0", 2), "ab", "", "abcdefgh", "abcdefghi"});
    const PayloadIndex index(payload.data(), payload.size());
    EXPECT_EQ(intAt(index, "a"), 0);
    EXPECT_EQ(intAt(index, std::string("a\0", 2)), 1);
    EXPECT_EQ(intAt(index, "ab"), 2);
    EXPECT_EQ(intAt(index, ""), 3);
    EXPECT_EQ(intAt(index, "abcdefgh"), 4);
    EXPECT_EQ(intAt(index, "abcdefghi"), 5);
    EXPECT_EQ(index.find("abcdefg"), nullptr);
}

// Work that grew with the square of the number would make this last for minutes.
TEST(PayloadIndex, HundredThousandEntriesAreFoundOneByOne) {
    std::vector<std::string> keys;
    for (int key = 0; key < 100000; ++key) {
        keys.push_back(std::to_string(key));
    }
    const Bytes payload = numberedEntries(keys);
    const PayloadIndex index(payload.data(), payload.size());
    for (std::size_t key = 0; key < keys.size(); ++key) {
        ASSERT_EQ(intAt(index, keys[key]), static_cast<std::int32_t>(key));
    }
}
