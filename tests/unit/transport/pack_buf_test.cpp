#include "transport/pack_buf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

void putText(OPackBuf& pack, const std::string& text) {
    pack.putBytes(text.data(), text.size());
}

std::vector<int> written(const OPackBuf& pack) {
    return {pack.view.data(), pack.view.data() + pack.used};
}

TEST(PackBuf, IsEmptyAtFirst) {
    const OPackBuf pack;
    EXPECT_EQ(pack.used, 0U);
    EXPECT_EQ(pack.view.length, 0U);
    EXPECT_EQ(pack.view.buffer, nullptr);
}

TEST(PackBuf, FirstU16TakesABlockOf256BytesAndIsBigEndian) {
    OPackBuf pack;
    pack.putU16(0x1234);
    EXPECT_EQ(pack.view.length, 256U);
    EXPECT_EQ(pack.view.buffer->capacity, 256U);
    EXPECT_EQ(pack.used, 2U);
    EXPECT_EQ(written(pack), std::vector<int>({0x12, 0x34}));
}

TEST(PackBuf, NumbersAreBigEndian) {
    OPackBuf pack;
    pack.putU8(0x01);
    pack.putU32(0x23456789);
    pack.putU16(0xABCD);
    EXPECT_EQ(written(pack), std::vector<int>({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}));
}

TEST(PackBuf, U16ThatDoesNotFitGrowsToTwiceTheUsedPlusFour) {
    OPackBuf pack;
    putText(pack, std::string(255, 'x'));
    EXPECT_EQ(pack.view.length, 256U);
    pack.putU16(0x1234);
    EXPECT_EQ(pack.view.length, 255U * 2 + 4);
    EXPECT_EQ(pack.used, 257U);
    EXPECT_EQ(written(pack)[254], 'x');
    EXPECT_EQ(written(pack)[255], 0x12);
    EXPECT_EQ(written(pack)[256], 0x34);
}

TEST(PackBuf, U16ThatJustFitsDoesNotGrow) {
    OPackBuf pack;
    putText(pack, std::string(254, 'x'));
    pack.putU16(1);
    EXPECT_EQ(pack.view.length, 256U);
    EXPECT_EQ(pack.used, 256U);
}

TEST(PackBuf, OneAndFourByteNumbersGrowToTwiceTheUsedPlusTwiceTheirWidth) {
    OPackBuf one;
    putText(one, std::string(256, 'x'));
    one.putU8(1);
    EXPECT_EQ(one.view.length, 256U * 2 + 2);
    OPackBuf four;
    putText(four, std::string(253, 'x'));
    four.putU32(1);
    EXPECT_EQ(four.view.length, 253U * 2 + 8);
}

TEST(PackBuf, FirstBytesTakeAtLeast256) {
    OPackBuf few;
    putText(few, "abc");
    EXPECT_EQ(few.view.length, 256U);
    OPackBuf many;
    putText(many, std::string(300, 'x'));
    EXPECT_EQ(many.view.length, 300U);
    EXPECT_EQ(many.used, 300U);
}

TEST(PackBuf, BytesThatDoNotFitGrowToTwiceWhatIsNeeded) {
    OPackBuf pack;
    putText(pack, std::string(200, 'x'));
    putText(pack, std::string(56, 'y'));
    EXPECT_EQ(pack.view.length, 256U);
    putText(pack, std::string(44, 'z'));
    EXPECT_EQ(pack.view.length, 300U * 2);
    const std::vector<int> bytes = written(pack);
    ASSERT_EQ(bytes.size(), 300U);
    EXPECT_EQ(bytes[199], 'x');
    EXPECT_EQ(bytes[255], 'y');
    EXPECT_EQ(bytes[299], 'z');
}

TEST(PackBuf, NoBytesChangeNothing) {
    OPackBuf pack;
    pack.putBytes(nullptr, 0);
    EXPECT_EQ(pack.used, 0U);
    EXPECT_EQ(pack.view.buffer, nullptr);
}

TEST(PackBuf, BytesBeyondMemoryAreTheLastOnesThatAreTaken) {
    OPackBuf pack;
    putText(pack, "abc");
    pack.putBytes("x", std::numeric_limits<std::uint64_t>::max() / 8);
    EXPECT_EQ(pack.used, 3U);
    putText(pack, "d");
    pack.putU8('e');
    pack.putU16(0x6667);
    pack.putU32(0x68696A6B);
    EXPECT_EQ(written(pack), std::vector<int>({'a', 'b', 'c'}));
}

TEST(PackBuf, ViewIsACopyOfWhatIsWritten) {
    OPackBuf pack;
    putText(pack, "abc");
    OBufView view;
    pack.toView(view);
    std::memset(pack.view.data(), '-', 3);
    putText(pack, "def");
    EXPECT_EQ(view.length, 3U);
    EXPECT_EQ(view.offset, 0U);
    EXPECT_NE(view.buffer, pack.view.buffer);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(view.data()), 3), "abc");
}

TEST(PackBuf, ListIsOneSuchView) {
    OPackBuf pack;
    putText(pack, "abc");
    OBufList list(3);
    pack.toList(list);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list.front().length, 3U);
    EXPECT_NE(list.front().buffer, pack.view.buffer);
}

TEST(PackBuf, ViewOfNothingIsEmpty) {
    const OPackBuf pack;
    OBufView view = OBufView::make("old", 3);
    pack.toView(view);
    EXPECT_EQ(view.length, 0U);
    OBufList list;
    pack.toList(list);
    EXPECT_EQ(list.size(), 1U);
}

TEST(PackBuf, SharedListPointsIntoTheStorage) {
    OPackBuf pack;
    putText(pack, "abc");
    OBufList list(2);
    pack.shareInto(list);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list.front().buffer, pack.view.buffer);
    EXPECT_EQ(list.front().length, 3U);
    OPackBuf().shareInto(list);
    EXPECT_TRUE(list.empty());
}

} // namespace
