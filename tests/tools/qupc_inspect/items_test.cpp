#include "items.h"

#include <random>

#include <gtest/gtest.h>

#include "capture_line.h"
#include "encode.h"
#include "hex.h"
#include "inputs.h"
#include "views.h"

using inspect::Item;
using inspect::Side;
using oracle::Bytes;

namespace {

const Bytes kNotify = oracle::encodePacket(34, 1, oracle::encodeInt("change-mode", 1));

std::string line(Side from, const Bytes& bytes) {
    inspect::Chunk chunk;
    chunk.from = from;
    chunk.bytes = bytes;
    return inspect::captureLine(chunk);
}

std::string service(const Bytes& bytes) {
    return line(Side::Service, bytes);
}

std::string event(const std::string& name) {
    inspect::Chunk chunk;
    chunk.mark = name;
    return inspect::captureLine(chunk);
}

std::string faultIn(const Item& item) {
    const auto fault = inspect::firstFault(item);
    return fault ? std::to_string(fault->offset) + ": " + fault->reason : "";
}

std::string faultOf(const Bytes& payload) {
    return faultIn(itemsOf(service(oracle::encodePacket(34, 1, payload))).at(0));
}

Bytes nestedDeep(int levels) {
    Bytes payload = oracle::encodeInt("k", 1);
    for (int level = 0; level < levels; ++level) {
        payload = oracle::encodeNested("", payload);
    }
    return payload;
}

/// What both sides sent, after `show --json` and `encode`.
std::map<Side, Bytes> throughJson(const std::string& input, const Key* key = nullptr) {
    inspect::JsonLines view;
    std::string json = view.head(false);
    for (const Item& item : itemsOf(input, key)) {
        json += view.of(item);
    }
    std::istringstream in(json);
    std::ostringstream out;
    inspect::encode(in, "json", out, inspect::Form::Capture);
    std::map<Side, Bytes> sent;
    for (const inspect::Chunk& chunk : chunksOf(out.str())) {
        oracle::append(sent[chunk.from], chunk.bytes);
    }
    return sent;
}

constexpr Key kKey = {{1, 2, 3}, {4, 5}};

} // namespace

TEST(InspectItems, SplitAnyhowPacketsAreTheSame) {
    const Bytes stream = oracle::join({kNotify, oracle::encodePacket(8193, 2, {}), kNotify});
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        const std::vector<Item> items = itemsOf(service(oracle::part(stream, 0, split)) +
                                                service(oracle::part(stream, split, stream.size() - split)));
        ASSERT_EQ(3U, items.size()) << split;
        EXPECT_EQ(8193, items[1].packet.command);
        EXPECT_EQ(kNotify, items[2].bytes);
        EXPECT_EQ(kNotify.size() + oracle::kHeaderSize, items[2].offset);
    }
}

TEST(InspectItems, SidesAreCutApart) {
    const std::vector<Item> items = itemsOf(line(Side::Host, oracle::part(kNotify, 0, 5)) + service(kNotify) +
                                            line(Side::Host, oracle::part(kNotify, 5, kNotify.size() - 5)));
    ASSERT_EQ(2U, items.size());
    EXPECT_EQ(Side::Service, items[0].from);
    EXPECT_EQ(Side::Host, items[1].from);
    EXPECT_EQ(3U, items[1].line);
}

TEST(InspectItems, UnfinishedPacketSaysWhatWasSaidAndWhatIsLeft) {
    const std::vector<Item> items = itemsOf(service(kNotify) + service(oracle::part(kNotify, 0, 4)));
    ASSERT_EQ(2U, items.size());
    EXPECT_FALSE(items[1].isPacket);
    EXPECT_EQ("0: header needs 9 bytes, 4 left", faultIn(items[1]));
    EXPECT_EQ(kNotify.size(), items[1].offset);
    EXPECT_EQ("9: payload needs 17 bytes, 3 left",
              faultIn(itemsOf(service(oracle::part(kNotify, 0, 12))).at(0)));
}

TEST(InspectItems, NewConnectionBeginsANewStream) {
    const std::vector<Item> items = itemsOf(service(oracle::part(kNotify, 0, 4)) + event("disconnect") +
                                            event("connect") + service(kNotify));
    ASSERT_EQ(4U, items.size());
    EXPECT_FALSE(items[0].isPacket);
    EXPECT_EQ("disconnect", items[1].mark);
    EXPECT_TRUE(items[3].isPacket);
    EXPECT_EQ(0U, items[3].offset);
    EXPECT_EQ(2U, itemsOf(service(oracle::part(kNotify, 0, 4)) + event("note") +
                          service(oracle::part(kNotify, 4, kNotify.size() - 4)))
                      .size());
}

TEST(InspectItems, FaultsOfAPayloadAreNamedByTheirByteInThePacket) {
    EXPECT_EQ("", faultOf(oracle::encodeInt("k", 1)));
    EXPECT_EQ("10: key needs 5 bytes, 1 left", faultOf({5, 'k'}));
    EXPECT_EQ("11: type needs 1 bytes, 0 left", faultOf({1, 'k'}));
    EXPECT_EQ("12: value length needs 4 bytes, 1 left", faultOf({1, 'k', 20, 0}));
    EXPECT_EQ("16: value needs 9 bytes, 1 left", faultOf({1, 'k', 20, 0, 0, 0, 9, 'x'}));
    EXPECT_EQ("12: value needs 4 bytes, 2 left", faultOf({1, 'k', 6, 0, 0}));
    EXPECT_EQ("11: type 15 has no value layout", faultOf({1, 'k', 15, 1}));
    EXPECT_EQ("15: key needs 9 bytes, 0 left", faultOf(oracle::encodeNested("n", {9})));
}

TEST(InspectItems, OtherFirstByteIsReportedAndThePacketRead) {
    Bytes packet = kNotify;
    packet[0] = 0x25;
    const std::vector<Item> items = itemsOf(service(oracle::join({packet, kNotify})));
    ASSERT_EQ(2U, items.size());
    EXPECT_TRUE(items[0].isPacket);
    EXPECT_EQ("0: the first byte is 25, not 24", faultIn(items[0]));
}

TEST(InspectItems, PacketThatIsTooLargeIsPassedOn) {
    const std::uint32_t size = oracle::PacketCutter::kSaneSize + 1;
    const Bytes header = oracle::encodeHeader(oracle::kMagic, 34, 1, size);
    const std::vector<Item> items =
        itemsOf(oracle::text(header) + std::string(size, 'x') + oracle::text(kNotify));
    EXPECT_EQ("5: payload needs 16777217 bytes, 65527 left: too many to be decoded", faultIn(items.at(0)));
    EXPECT_EQ("0: of a payload that is not decoded, which needs 16711690 bytes from here on",
              faultIn(items.at(1)));
    EXPECT_TRUE(items.back().isPacket);
    EXPECT_EQ(kNotify, items.back().bytes);
}

TEST(InspectItems, DeepNestingIsTakenAsBytes) {
    const std::string input = service(oracle::encodePacket(34, 1, nestedDeep(1000)));
    const std::vector<inspect::Row> rows = inspect::rowsOf(itemsOf(input).at(0));
    EXPECT_EQ(inspect::kDeepest + 1, rows.size());
    EXPECT_FALSE(rows.back().isList);
    EXPECT_EQ(oracle::encodePacket(34, 1, nestedDeep(1000)), throughJson(input)[Side::Service]);
}

TEST(InspectItems, KeyOpensWhatBothSidesProtected) {
    oracle::Protection host(kKey.key, kKey.start, kKey.start);
    oracle::Protection answers(kKey.key, kKey.start, kKey.start);
    std::string input;
    for (int round = 0; round < 3; ++round) {
        input +=
            line(Side::Host, oracle::encodePacket(34, 1, host.seal(oracle::encodeText("accountID", "a"))));
        input += service(oracle::encodePacket(34, 1, answers.seal(oracle::encodeInt("k", 7))));
    }
    const std::vector<Item> items = itemsOf(input, &kKey);
    ASSERT_EQ(6U, items.size());
    for (const Item& item : items) {
        EXPECT_TRUE(item.wasOpened);
        EXPECT_EQ("", faultIn(item));
    }
    EXPECT_EQ(oracle::encodeText("accountID", "a"), items[4].packet.payload);
    EXPECT_EQ(oracle::encodeInt("k", 7), items[5].packet.payload);
    EXPECT_EQ(throughJson(input)[Side::Host], throughJson(input, &kKey)[Side::Host]);
}

TEST(InspectItems, WrongKeyAndNoKeyAreSaid) {
    oracle::Protection sender(kKey.key, kKey.start, kKey.start);
    const Bytes packet =
        oracle::encodePacket(34, 1, sender.seal(oracle::encodeText("accountID", "somebody")));
    const Key wrong = {{9}, {}};
    EXPECT_EQ("9: the payload looks protected, --key opens it", faultIn(itemsOf(service(packet)).at(0)));
    EXPECT_NE("", faultIn(itemsOf(service(packet), &wrong).at(0)));
    Bytes broken = packet;
    broken.back() ^= 1U;
    EXPECT_EQ("9: the payload is not one that the key opens", faultIn(itemsOf(service(broken), &kKey).at(0)));
}

TEST(InspectItems, ChainBeginsAnewWithAConnection) {
    std::string input;
    for (int connection = 0; connection < 2; ++connection) {
        oracle::Protection sender(kKey.key, kKey.start, kKey.start);
        input +=
            event("connect") + service(oracle::encodePacket(34, 1, sender.seal(oracle::encodeInt("k", 7))));
    }
    EXPECT_EQ(oracle::encodeInt("k", 7), itemsOf(input, &kKey).at(3).packet.payload);
}

TEST(InspectItems, AnyBytesSurviveJson) {
    std::mt19937 random(20);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    for (int round = 0; round < 60; ++round) {
        std::string input;
        std::map<Side, Bytes> sent;
        for (std::size_t piece = below(6); piece-- > 0;) {
            Bytes payload = below(2) == 0 ? oracle::encodeNested("n", oracle::encodeText("t", "\xFF\n\""))
                                          : nestedDeep(2);
            oracle::append(payload, oracle::encodeRaw("r", static_cast<std::uint8_t>(below(26)),
                                                      Bytes(below(12), 0xFE)));
            Bytes bytes = oracle::encodePacket(static_cast<std::uint16_t>(random()), 3, payload);
            bytes[below(bytes.size())] = static_cast<std::uint8_t>(random());
            bytes.resize(bytes.size() - below(3));
            const Side from = below(2) == 0 ? Side::Host : Side::Service;
            input += line(from, bytes);
            oracle::append(sent[from], bytes);
        }
        for (const Key* key : {static_cast<const Key*>(nullptr), &kKey}) {
            auto back = throughJson(input, key);
            ASSERT_EQ(sent[Side::Host], back[Side::Host]) << input;
            ASSERT_EQ(sent[Side::Service], back[Side::Service]) << input;
        }
    }
}
