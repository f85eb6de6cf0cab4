// What holds for any payload: built entries are read back, and any bytes at all are survived.

#include "oracle/entries.h"
#include "protocol/key_value.h"
#include "support/effort.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <string>

using namespace support;
using oracle::Bytes;
using Data = CtrlProtocol::KeyValueData;

namespace {

std::string randomText(std::mt19937& random, std::size_t most) {
    std::string text(random() % (most + 1), ' ');
    std::generate(text.begin(), text.end(), [&random] { return static_cast<char>(random()); });
    return text;
}

std::string keyOf(std::mt19937& random) {
    // Few short keys, so that duplicates are common.
    return random() % 2 == 0 ? std::string(1, static_cast<char>('a' + random() % 5))
                             : randomText(random, 255);
}

void readEverything(const Data& data) {
    for (const auto& [key, offset] : data.entries()) {
        bool ok = false;
        data.getByte(key, ok);
        data.getInt(key, ok);
        data.getString(key, ok);
        data.getBytes(key, ok);
    }
}

/// Just the getter of the entry's type finds it.
void requireValue(const Data& data, const oracle::Entry& entry) {
    bool ok = false;
    const std::uint8_t byte = data.getByte(entry.key, ok);
    ASSERT_EQ(ok, entry.type == oracle::kTypeByte);
    ASSERT_EQ(byte, ok ? entry.value[0] : 0);
    const std::int32_t number = data.getInt(entry.key, ok);
    ASSERT_EQ(ok, entry.type == oracle::kTypeInt);
    ASSERT_EQ(number, ok ? oracle::intOf(entry.value) : 0);
    const std::string text = data.getString(entry.key, ok);
    ASSERT_EQ(ok, entry.type == oracle::kTypeText);
    ASSERT_EQ(text, ok ? oracle::text(entry.value) : "");
    ASSERT_EQ(bytesOf(data.getBytes(entry.key, ok)), oracle::bytesOf(text));
}

} // namespace

TEST(KeyValueProperty, WhatIsBuiltIsReadBackHoweverItIsCut) {
    const int rounds = support::rounds(200, 20000);
    for (int seed = 0; seed < rounds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(static_cast<unsigned>(seed));
        CtrlProtocol::KeyValueBuf builder;
        std::map<std::string, oracle::Entry> last;
        const std::size_t count = random() % 12;
        for (std::size_t index = 0; index < count; ++index) {
            const std::string key = keyOf(random);
            if (random() % 2 == 0) {
                const auto value = static_cast<std::uint32_t>(random());
                builder.addInt(key, value);
                last[key] = {key, oracle::kTypeInt, oracle::bigEndian(value, 4)};
            } else {
                const std::string value = randomText(random, 300);
                builder.addString(key, value);
                last[key] = {key, oracle::kTypeText, oracle::bytesOf(value)};
            }
        }
        OBufList chain;
        builder.finish(chain);
        const Data data(chainOfPieces(bytesOf(chain), 1 + random() % 40));
        ASSERT_EQ(data.entries().size(), last.size());
        for (const auto& [key, entry] : last) {
            bool ok = false;
            if (entry.type == oracle::kTypeInt) {
                ASSERT_EQ(data.getInt(key, ok), oracle::intOf(entry.value));
            } else {
                ASSERT_EQ(data.getString(key, ok), oracle::text(entry.value));
            }
            ASSERT_TRUE(ok);
        }
    }
    tried("random payloads built and read back", rounds, "payloads");
}

TEST(KeyValueProperty, OfEntriesWithTheSameKeyTheLastOneWinsWhateverItsType) {
    constexpr std::uint8_t kTypes[] = {
        0, oracle::kTypeByte, 5, oracle::kTypeInt, 8, oracle::kTypeNested, oracle::kTypeText, 22};
    const int rounds = support::rounds(300, 30000);
    for (int seed = 0; seed < rounds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(static_cast<unsigned>(seed));
        Bytes payload;
        std::map<std::string, oracle::Entry> last;
        for (int count = 0; count < 12; ++count) {
            oracle::Entry next{std::string(1, static_cast<char>('a' + random() % 3)),
                               kTypes[random() % std::size(kTypes)], oracle::bytesOf(randomText(random, 20))};
            const oracle::Layout layout = oracle::layoutOf(next.type);
            if (layout.lengthWidth == 0) {
                next.value.resize(layout.fixedWidth);
            }
            payload = oracle::join({payload, oracle::encode(next)});
            last[next.key] = next;
        }
        const Data data(chainOfPieces(payload, 1 + random() % 40));
        ASSERT_EQ(data.entries().size(), last.size());
        for (const auto& [key, entry] : last) {
            ASSERT_NO_FATAL_FAILURE(requireValue(data, entry)) << "key " << key;
        }
    }
    tried("random payloads of duplicate keys", rounds, "payloads");
}

TEST(KeyValueProperty, ThePlainDecoderOfTheTestsReadsWhatIsBuilt) {
    std::mt19937 random(20);
    for (int round = 0; round < 100; ++round) {
        CtrlProtocol::KeyValueBuf builder;
        std::vector<oracle::Entry> expected;
        for (std::size_t index = random() % 8; index-- > 0;) {
            const std::string key = keyOf(random);
            const std::string value = randomText(random, 600);
            CtrlProtocol::KeyValueBuf inner;
            inner.addString(key, value);
            builder.addString(key, value).addKeyValueBuf(key, inner);
            expected.push_back({key, oracle::kTypeText, oracle::bytesOf(value)});
            expected.push_back({key, oracle::kTypeNested, oracle::encodeText(key, value)});
        }
        OBufList chain;
        builder.finish(chain);
        const oracle::Decoded decoded = oracle::decode(bytesOf(chain));
        ASSERT_EQ(decoded.entries, expected);
        ASSERT_FALSE(decoded.fault);
    }
}

TEST(KeyValueProperty, EveryTruncationOfEveryBuiltPayloadIsSurvived) {
    std::mt19937 random(5);
    for (int round = 0; round < 20; ++round) {
        CtrlProtocol::KeyValueBuf builder;
        for (int index = 0; index < 5; ++index) {
            builder.addInt(keyOf(random), 1).addString(keyOf(random), randomText(random, 20));
        }
        OBufList chain;
        builder.finish(chain);
        const Bytes whole = bytesOf(chain);
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            // A block of exactly the bytes that are there: a read past the end is seen by the sanitizer.
            readEverything(
                Data(chainOf(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)))));
        }
    }
}

TEST(KeyValueProperty, AnyBytesAreSurvived) {
    std::mt19937 random(6);
    const int rounds = support::rounds(5000, 500000);
    for (int round = 0; round < rounds; ++round) {
        Bytes bytes(random() % 60);
        const unsigned range =
            round % 2 == 0 ? 256 : 24; // small numbers make known types and fitting lengths
        std::generate(bytes.begin(), bytes.end(),
                      [&] { return static_cast<std::uint8_t>(random() % range); });
        const Data data(chainOfPieces(bytes, 1 + random() % 10));
        readEverything(data);
        for (const auto& [key, offset] : data.entries()) {
            ASSERT_LT(offset, bytes.size());
            ASSERT_TRUE(oracle::layoutOf(bytes[offset]).lengthWidth != 0 ||
                        oracle::layoutOf(bytes[offset]).fixedWidth != 0);
        }
    }
    tried("random bytes as a payload", rounds, "payloads");
}
