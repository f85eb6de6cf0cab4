#include "support/transport/view_texts.h"
#include "transport/buf_view.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace support;

namespace {

constexpr std::uint64_t kMoreThanThereIs = std::numeric_limits<std::uint64_t>::max() / 4;
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

OBufView sliceOf(const OBufView& view, std::uint64_t from, std::uint64_t n) {
    OBufView out;
    EXPECT_TRUE(view.slice(out, from, n));
    return out;
}

TEST(BufView, FreshViewHasNoBlockAndNoBytes) {
    const OBufView view;
    EXPECT_EQ(view.buffer, nullptr);
    EXPECT_EQ(view.offset, 0U);
    EXPECT_EQ(view.length, 0U);
    EXPECT_EQ(view.data(), nullptr);
}

TEST(BufView, MakeCopiesTheBytes) {
    std::string text = "abcdef";
    const OBufView view = OBufView::make(text.data(), text.size());
    text = "------";
    EXPECT_EQ(textOf(view), "abcdef");
    EXPECT_EQ(view.offset, 0U);
    EXPECT_EQ(view.buffer->capacity, 6U);
}

TEST(BufView, MakeIsEmptyWhenTheBlockCannotBeAllocated) {
    const OBufView view = OBufView::make("x", kMoreThanThereIs);
    EXPECT_EQ(view.length, 0U);
    EXPECT_EQ(view.data(), nullptr);
    OBufView out;
    EXPECT_FALSE(view.slice(out, 0, 1)) << "a block without bytes is never touched";
}

TEST(BufView, MakeOfNoBytesNeedsNoSource) {
    EXPECT_EQ(OBufView::make(nullptr, 0).length, 0U);
}

TEST(BufView, ResetGivesAnotherBlockOfExactlyThatSize) {
    OBufView view = sliceOf(viewOf("abcdef"), 2, 3);
    const std::shared_ptr<ORefBuffer> old = view.buffer;
    const std::uint8_t* data = view.reset(10);
    EXPECT_NE(view.buffer, old);
    EXPECT_EQ(view.data(), data);
    EXPECT_EQ(view.offset, 0U);
    EXPECT_EQ(view.length, 10U);
    EXPECT_EQ(view.buffer->capacity, 10U);
}

TEST(BufView, ResetReturnsNullWhenTheBlockCannotBeAllocated) {
    OBufView view = viewOf("abc");
    EXPECT_EQ(view.reset(kMoreThanThereIs), nullptr);
    EXPECT_EQ(view.length, 0U);
    EXPECT_EQ(view.data(), nullptr);
}

TEST(BufView, SliceSharesTheBlock) {
    const OBufView view = viewOf("abcdef");
    const OBufView middle = sliceOf(view, 1, 4);
    EXPECT_EQ(middle.buffer, view.buffer);
    EXPECT_EQ(textOf(middle), "bcde");
    const OBufView inner = sliceOf(middle, 2, 2);
    EXPECT_EQ(inner.offset, 3U);
    EXPECT_EQ(textOf(inner), "de");
}

TEST(BufView, SliceOfTheWholeViewIsTheView) {
    EXPECT_EQ(textOf(sliceOf(viewOf("abc"), 0, 3)), "abc");
}

TEST(BufView, SliceOfNoBytesFails) {
    OBufView out = viewOf("kept");
    EXPECT_FALSE(viewOf("abc").slice(out, 1, 0));
    EXPECT_EQ(textOf(out), "kept");
}

TEST(BufView, SliceOfAViewWithoutABlockFails) {
    OBufView out;
    EXPECT_FALSE(OBufView().slice(out, 0, 1));
}

TEST(BufView, SlicePastTheEndOfTheViewFails) {
    const OBufView view = sliceOf(viewOf("abcdef"), 1, 3); // two more bytes follow in the block
    OBufView out;
    EXPECT_FALSE(view.slice(out, 0, 4));
    EXPECT_FALSE(view.slice(out, 3, 1));
    EXPECT_FALSE(view.slice(out, 4, 1));
    EXPECT_TRUE(view.slice(out, 2, 1));
}

TEST(BufView, SlicePastTheEndOfTheBlockFails) {
    OBufView view = viewOf("abcdef");
    view.offset = 4; // as a view that was grown with an offset: it says more than its block holds
    OBufView out;
    EXPECT_FALSE(view.slice(out, 0, 3));
    EXPECT_FALSE(view.slice(out, 2, 1));
    EXPECT_TRUE(view.slice(out, 1, 1));
}

TEST(BufView, SliceWhoseEndWrapsAroundFails) {
    OBufView view = viewOf("abcdef");
    OBufView out;
    EXPECT_FALSE(view.slice(out, kLargest, 2));
    EXPECT_FALSE(view.slice(out, 2, kLargest));
    view.length = kLargest;
    EXPECT_FALSE(view.slice(out, kLargest - 1, 1));
    view.offset = kLargest;
    EXPECT_FALSE(view.slice(out, 1, 1));
}

TEST(BufView, SliceMayReplaceTheViewItself) {
    OBufView view = viewOf("abcdef");
    EXPECT_TRUE(view.slice(view, 1, 4));
    EXPECT_TRUE(view.slice(view, 1, 2));
    EXPECT_EQ(textOf(view), "cd");
}

TEST(BufView, SetLengthToZeroKeepsTheBlock) {
    OBufView view = viewOf("abcdef");
    EXPECT_EQ(view.setLength(0), 6U);
    EXPECT_EQ(view.length, 0U);
    EXPECT_NE(view.buffer, nullptr);
    EXPECT_EQ(view.setLength(6), 0U);
    EXPECT_EQ(textOf(view), "abcdef");
}

TEST(BufView, SetLengthInsideTheBlockKeepsIt) {
    OBufView view = sliceOf(viewOf("abcdef"), 2, 1);
    const std::shared_ptr<ORefBuffer> block = view.buffer;
    EXPECT_EQ(view.setLength(4), 1U);
    EXPECT_EQ(view.buffer, block);
    EXPECT_EQ(textOf(view), "cdef");
}

TEST(BufView, GrowingCopiesTheOldBytesIntoABlockOfExactlyThatSize) {
    OBufView view = viewOf("abcdef");
    const OBufView other = view;
    EXPECT_EQ(view.setLength(9), 6U);
    EXPECT_NE(view.buffer, other.buffer);
    EXPECT_EQ(view.buffer->capacity, 9U);
    EXPECT_EQ(view.length, 9U);
    EXPECT_EQ(textOf(view).substr(0, 6), "abcdef");
    EXPECT_EQ(textOf(other), "abcdef") << "who shares the old block keeps it";
}

TEST(BufView, GrowingCopiesBytesBeyondTheOldLengthToo) {
    OBufView view = viewOf("abcdef");
    view.setLength(2);
    view.setLength(8);
    EXPECT_EQ(textOf(view).substr(0, 6), "abcdef");
}

TEST(BufView, GrowingAViewWithAnOffsetCopiesFromTheBlocksFirstByteAndKeepsTheOffset) {
    OBufView view = sliceOf(viewOf("abcdef"), 2, 4);
    EXPECT_EQ(view.setLength(10), 4U);
    EXPECT_EQ(view.offset, 2U);
    EXPECT_EQ(view.length, 10U);
    EXPECT_EQ(view.buffer->capacity, 10U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(view.buffer->data), 6), "abcdef");
}

TEST(BufView, GrowingWithAnOffsetToLessThanTheOldBlockStaysInsideTheNewOne) {
    OBufView view = sliceOf(viewOf("abcdef"), 4, 2);
    EXPECT_EQ(view.setLength(3), 2U);
    EXPECT_EQ(view.buffer->capacity, 3U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(view.buffer->data), 3), "abc");
}

TEST(BufView, SetLengthGivesAnEmptyViewANewBlock) {
    OBufView view;
    EXPECT_EQ(view.setLength(5), 0U);
    ASSERT_NE(view.buffer, nullptr);
    EXPECT_EQ(view.buffer->capacity, 5U);
    EXPECT_EQ(view.length, 5U);
    EXPECT_EQ(view.offset, 0U);
}

TEST(BufView, GrowingBeyondMemoryLeavesAnEmptyView) {
    OBufView view = viewOf("abc");
    EXPECT_EQ(view.setLength(kMoreThanThereIs), 3U);
    EXPECT_EQ(view.length, 0U);
    EXPECT_EQ(view.data(), nullptr);
}

} // namespace
