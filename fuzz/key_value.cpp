// Byte 0 of an input chooses how the payload is cut into pieces. Byte 1 chooses what the rest is: a payload from a peer
// that cannot be trusted (even), or a list of entries to be built (odd). A plain second decoder must find the same
// entries and the same values, and what was built must be read back.

#include "protocol/key_value.h"
#include "oracle/entries.h"
#include "support/cuts.h"
#include "support/input.h"
#include "support/require.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

using oracle::Bytes;
using Builder = CtrlProtocol::KeyValueBuf;
using Data = CtrlProtocol::KeyValueData;

namespace {

constexpr int kDeepest = 3;
/// Of a payload that is built: many keys of 255 bytes come from a few bytes of input.
constexpr std::size_t kEnough = 10000;

Bytes bytesOf(const OBufList& list) {
    Bytes bytes;
    for (const OBufView& view : list) {
        require(view.length != 0, "no piece is empty");
        bytes.insert(bytes.end(), view.data(), view.data() + view.length);
    }
    return bytes;
}

void requireSameAnswers(const Data& data, const oracle::Entries& entries, const std::string& key) {
    bool ok = false;
    const auto byte = oracle::byteOf(entries, key);
    require(data.getByte(key, ok) == byte.value_or(0) && ok == byte.has_value(), "getByte");
    const auto number = oracle::intOf(entries, key);
    require(data.getInt(key, ok) == number.value_or(0) && ok == number.has_value(), "getInt");
    const auto text = oracle::textOf(entries, key);
    require(data.getString(key, ok) == text.value_or("") && ok == text.has_value(), "getString");
    require(bytesOf(data.getBytes(key, ok)) == oracle::bytesOf(text.value_or("")) && ok == text.has_value(),
            "getBytes");
}

/// Keys that differ a little from one that is there.
std::vector<std::string> near(const std::string& key) {
    std::string changed = key;
    if (!changed.empty()) {
        changed.back() = static_cast<char>(changed.back() ^ 1);
    }
    return {key + "x", key.substr(0, key.size() / 2), key + std::string(1, '\0'), changed};
}

void requireSameEntries(const Bytes& payload, std::uint8_t cuts) {
    const oracle::Entries expected = oracle::entriesOf(payload);
    const Data data(cutIntoPieces(payload, cuts));
    const std::map<std::string, std::uint32_t> indexed = data.entries();
    require(indexed.size() == expected.size(), "as many entries");
    auto found = indexed.begin();
    for (const auto& [key, entry] : expected) {
        require(found->first == key, "the same keys");
        require(found->second == entry.typeOffset, "the same places");
        ++found;
    }
    requireSameAnswers(data, expected, "");
    for (const auto& [key, entry] : expected) {
        requireSameAnswers(data, expected, key);
    }
    if (!expected.empty()) {
        for (const std::string& key : near(expected.begin()->first)) {
            requireSameAnswers(data, expected, key);
        }
    }
}

/// Short keys of few letters mostly, so that duplicates are common; now and then one at the limit.
std::string takeKey(Input& input) {
    const std::uint8_t length = input.takeByte();
    const std::size_t atTheLimit = 254 + length % 3U;
    return length >= 250 ? std::string(atTheLimit, static_cast<char>(input.takeByte()))
                         : oracle::text(input.take(length % 32U));
}

std::string takeText(Input& input) {
    const std::uint8_t length = input.takeByte();
    const std::string piece = oracle::text(input.take(length % 64U));
    std::string text;
    for (int times = length / 64; times >= 0; --times) {
        text += piece;
    }
    return text;
}

/// Builds entries with the library and by hand, side by side.
struct BothBuilders {
    Builder library;
    Bytes plain;
    /// A key of 256 bytes cannot be read back: its length does not fit the field.
    bool readable = true;
};

void buildOne(Input& input, BothBuilders& builders, int depth);

void buildNested(Input& input, BothBuilders& builders, const std::string& key, int depth) {
    BothBuilders inner;
    for (int count = input.takeByte() % 4; count > 0; --count) {
        buildOne(input, inner, depth + 1);
    }
    builders.library.addKeyValueBuf(key, inner.library);
    oracle::append(builders.plain, oracle::encodeNested(key, inner.plain));
    OBufList innerPayload;
    inner.library.finish(innerPayload);
    require(bytesOf(innerPayload) == inner.plain, "a nested payload is built as the model builds it");
}

void buildOne(Input& input, BothBuilders& builders, int depth) {
    const std::uint8_t kind = input.takeByte();
    const std::string key = takeKey(input);
    builders.readable = builders.readable && key.size() < 256;
    if (kind % 3 == 0) {
        const auto value =
            static_cast<std::uint32_t>(oracle::number(oracle::bytesOf(takeText(input) + "1234"), 0, 4));
        builders.library.addInt(key, value);
        oracle::append(builders.plain, oracle::encodeInt(key, value));
    } else if (kind % 3 == 1 || depth == kDeepest) {
        const std::string value = takeText(input);
        builders.library.addString(key, value);
        oracle::append(builders.plain, oracle::encodeText(key, value));
    } else {
        buildNested(input, builders, key, depth);
    }
}

/// The next entry, read back at once: at this moment it is the last one of its key.
void requireReadBack(const Bytes& payload, std::size_t before) {
    const Bytes last = oracle::part(payload, before, payload.size() - before);
    const oracle::Entries entries = oracle::entriesOf(last);
    require(entries.size() == 1, "one entry was built");
    const auto& [key, entry] = *entries.begin();
    const Data data(cutIntoPieces(payload, 0));
    const std::map<std::string, std::uint32_t> indexed = data.entries();
    const auto place = indexed.find(key);
    require(place != indexed.end() && place->second == before + entry.typeOffset, "the last duplicate wins");
}

void buildAndReadBack(Input& input, std::uint8_t cuts) {
    BothBuilders builders;
    while (!input.empty() && builders.plain.size() < kEnough) {
        const std::size_t before = builders.plain.size();
        buildOne(input, builders, 0);
        if (builders.readable && before < 512) {
            requireReadBack(builders.plain, before);
        }
    }
    OBufList payload;
    builders.library.finish(payload);
    require(bytesOf(payload) == builders.plain, "the payload is built as the model builds it");
    requireSameEntries(builders.plain, cuts);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t cuts = input.takeByte();
    if (input.takeByte() % 2 == 0) {
        requireSameEntries(input.rest(), cuts);
    } else {
        buildAndReadBack(input, cuts);
    }
    return 0;
}
