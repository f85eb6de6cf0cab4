#include "support/transport/view_texts.h"
#include "transport/buf_reader.h"

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

using namespace support;

namespace {

std::string contiguous(OBufReader& reader, std::uint64_t n) {
    const std::uint8_t* run = nullptr;
    EXPECT_TRUE(reader.readContiguous(&run, n));
    return {reinterpret_cast<const char*>(run), static_cast<std::size_t>(n)};
}

TEST(BufReader, StartsAtTheFirstViewOfTheList) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    EXPECT_EQ(reader.total, 8U);
    EXPECT_EQ(reader.posInView, 0U);
    EXPECT_EQ(reader.consumed, 0U);
    EXPECT_EQ(reader.current, reader.views.begin());
    EXPECT_EQ(reader.views.size(), 2U);
}

TEST(BufReader, StartsAtTheOneView) {
    const OBufView view = viewOf("abc");
    OBufReader reader(view);
    EXPECT_EQ(reader.total, 3U);
    EXPECT_EQ(reader.current, reader.views.begin());
    EXPECT_EQ(reader.views.front().buffer, view.buffer);
}

TEST(BufReader, SixBytesOfThreeAndFiveAreTwoSlicesOfThree) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    OBufList out;
    ASSERT_TRUE(reader.read(6, out));
    EXPECT_EQ(textsOf(out), Texts({"abc", "def"}));
    EXPECT_EQ(reader.posInView, 3U);
    EXPECT_EQ(reader.current, std::next(reader.views.begin()));
    EXPECT_EQ(reader.consumed, 6U);
}

TEST(BufReader, SlicesShareTheBlocks) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    OBufList out;
    ASSERT_TRUE(reader.read(4, out));
    EXPECT_EQ(out.front().buffer, reader.views.front().buffer);
    EXPECT_EQ(out.back().buffer, reader.views.back().buffer);
}

TEST(BufReader, ReadUpToTheEndOfAViewGoesOnToTheNext) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    OBufList out;
    ASSERT_TRUE(reader.read(3, out));
    EXPECT_EQ(reader.current, std::next(reader.views.begin()));
    EXPECT_EQ(reader.posInView, 0U);
}

TEST(BufReader, ReadOfEverythingEndsPastTheLastView) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    OBufList out;
    ASSERT_TRUE(reader.read(8, out));
    EXPECT_EQ(reader.current, reader.views.end());
    EXPECT_EQ(reader.remaining(), 0U);
    EXPECT_TRUE(reader.read(0, out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(reader.read(1, out));
}

TEST(BufReader, EmptyViewsAreSteppedOver) {
    OBufReader reader(listOfTexts({"", "ab", "", "", "cd", ""}));
    OBufList out;
    ASSERT_TRUE(reader.read(3, out));
    EXPECT_EQ(textsOf(out), Texts({"ab", "c"}));
    ASSERT_TRUE(reader.read(1, out));
    EXPECT_EQ(textsOf(out), Texts({"d"}));
}

TEST(BufReader, ReadClearsTheListItIsGiven) {
    OBufReader reader(viewOf("abc"));
    OBufList out = listOfTexts({"old"});
    ASSERT_TRUE(reader.read(2, out));
    EXPECT_EQ(textsOf(out), Texts({"ab"}));
    EXPECT_FALSE(reader.read(2, out));
    EXPECT_TRUE(out.empty());
}

TEST(BufReader, ReadBeyondTheTotalFailsAndConsumesNothing) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    OBufList out;
    ASSERT_TRUE(reader.read(4, out));
    EXPECT_FALSE(reader.read(5, out));
    EXPECT_EQ(reader.consumed, 4U);
    EXPECT_EQ(reader.posInView, 1U);
    EXPECT_FALSE(reader.readBytes(nullptr, 5));
    const std::uint8_t* run = nullptr;
    EXPECT_FALSE(reader.readContiguous(&run, 5));
    EXPECT_EQ(reader.consumed, 4U);
    ASSERT_TRUE(reader.read(4, out));
    EXPECT_EQ(textsOf(out), Texts({"efgh"}));
}

TEST(BufReader, LengthThatWrapsAroundFails) {
    OBufReader reader(viewOf("abc"));
    OBufList out;
    ASSERT_TRUE(reader.read(1, out));
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    EXPECT_FALSE(reader.read(kLargest, out));
    EXPECT_FALSE(reader.readBytes(nullptr, kLargest));
    const std::uint8_t* run = nullptr;
    EXPECT_FALSE(reader.readContiguous(&run, kLargest));
    EXPECT_EQ(reader.consumed, 1U);
}

TEST(BufReader, ReadOfNoBytesConsumesNothing) {
    OBufReader reader(viewOf("abc"));
    OBufList out;
    EXPECT_TRUE(reader.read(0, out));
    EXPECT_TRUE(reader.readBytes(nullptr, 0));
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(reader.consumed, 0U);
}

TEST(BufReader, ReaderOverNothingGivesNothing) {
    OBufReader reader((OBufList()));
    OBufList out;
    EXPECT_TRUE(reader.read(0, out));
    EXPECT_FALSE(reader.read(1, out));
}

TEST(BufReader, ReadBytesCopiesAcrossViews) {
    OBufReader reader(listOfTexts({"abc", "defgh", "ij"}));
    std::array<char, 7> bytes = {};
    ASSERT_TRUE(reader.readBytes(nullptr, 2)); // skipped
    ASSERT_TRUE(reader.readBytes(bytes.data(), 7));
    EXPECT_EQ(std::string(bytes.data(), 7), "cdefghi");
    EXPECT_EQ(reader.consumed, 9U);
}

TEST(BufReader, ContiguousBytesInsideAViewAreNotCopied) {
    OBufReader reader(listOfTexts({"abcd", "efgh"}));
    const std::uint8_t* first = nullptr;
    const std::uint8_t* second = nullptr;
    ASSERT_TRUE(reader.readContiguous(&first, 1));
    ASSERT_TRUE(reader.readContiguous(&second, 3)); // up to the view's last byte
    EXPECT_EQ(first, reader.views.front().data());
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(reader.consumed, 4U);
    EXPECT_EQ(reader.scratch.buffer, nullptr);
}

TEST(BufReader, ContiguousBytesAcrossViewsEqualTheCopiedOnes) {
    const OBufList list = listOfTexts({"abc", "defgh"});
    OBufReader copying{OBufList(list)};
    OBufReader pointing{OBufList(list)};
    std::array<char, 6> bytes = {};
    ASSERT_TRUE(copying.readBytes(bytes.data(), bytes.size()));
    const std::uint8_t* run = nullptr;
    ASSERT_TRUE(pointing.readContiguous(&run, bytes.size()));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(run), bytes.size()),
              std::string(bytes.data(), bytes.size()));
    EXPECT_EQ(run, pointing.scratch.data());
    EXPECT_EQ(pointing.scratch.length, bytes.size());
    EXPECT_EQ(pointing.consumed, copying.consumed);
    EXPECT_EQ(pointing.posInView, copying.posInView);
}

TEST(BufReader, ContiguousReadAfterOneThatEndedAViewUsesTheNextView) {
    OBufReader reader(listOfTexts({"abc", "defgh"}));
    EXPECT_EQ(contiguous(reader, 3), "abc");
    EXPECT_EQ(contiguous(reader, 2), "de");
    OBufList out;
    ASSERT_TRUE(reader.read(3, out));
    EXPECT_EQ(textsOf(out), Texts({"fgh"}));
}

TEST(BufReader, ContiguousReadOfNoBytesGivesNull) {
    OBufReader reader(viewOf("abc"));
    const std::uint8_t* run = reader.views.front().data();
    EXPECT_TRUE(reader.readContiguous(&run, 0));
    EXPECT_EQ(run, nullptr);
    EXPECT_EQ(reader.consumed, 0U);
}

TEST(BufReader, ContiguousReadWantsAPlaceForThePointer) {
    OBufReader reader(viewOf("abc"));
    EXPECT_FALSE(reader.readContiguous(nullptr, 1));
    EXPECT_FALSE(reader.readContiguous(nullptr, 0));
    EXPECT_EQ(reader.consumed, 0U);
}

TEST(BufReader, EverySplitOfAStreamGivesTheSameBytes) {
    const std::string stream = "0123456789";
    for (std::size_t a = 0; a <= stream.size(); ++a) {
        for (std::size_t b = a; b <= stream.size(); ++b) {
            const Texts pieces = {stream.substr(0, a), stream.substr(a, b - a), stream.substr(b)};
            OBufReader reader(listOfTexts(pieces));
            std::string joined = contiguous(reader, 2);
            OBufList out;
            ASSERT_TRUE(reader.read(3, out));
            for (const std::string& piece : textsOf(out)) {
                joined += piece;
            }
            std::array<char, 4> bytes = {};
            ASSERT_TRUE(reader.readBytes(bytes.data(), bytes.size()));
            joined.append(bytes.data(), bytes.size());
            joined += contiguous(reader, 1);
            ASSERT_EQ(joined, stream) << a << " " << b;
            ASSERT_EQ(reader.remaining(), 0U);
        }
    }
}

TEST(BufReader, ViewThatHasLostItsBlockIsNeverCopiedFrom) {
    OBufView lost;
    lost.length = 3;
    const std::uint8_t* run = nullptr;
    OBufReader whole(lost);
    EXPECT_FALSE(whole.readContiguous(&run, 2));
    OBufList pieces = listOfTexts(Texts{"ab"});
    pieces.push_back(lost);
    OBufReader across(std::move(pieces));
    EXPECT_FALSE(across.readContiguous(&run, 4));
    std::array<char, 2> bytes = {};
    OBufReader copied(lost);
    EXPECT_FALSE(copied.readBytes(bytes.data(), bytes.size()));
    OBufReader skipped(lost);
    EXPECT_TRUE(skipped.readBytes(nullptr, 3));
}

} // namespace
