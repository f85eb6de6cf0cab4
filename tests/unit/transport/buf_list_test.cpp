#include "support/transport/view_texts.h"
#include "transport/buf_list.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace support;

namespace {

/// "0", "1", ... : lists of every size around the one from which on views need memory of their own.
Texts numbers(std::size_t count) {
    Texts texts;
    for (std::size_t index = 0; index < count; ++index) {
        texts.push_back(std::to_string(index));
    }
    return texts;
}

constexpr std::size_t kSizes = 9;

} // namespace

TEST(BufList, KeepsViewsInTheOrderInWhichTheyWereAdded) {
    for (std::size_t size = 0; size < kSizes; ++size) {
        const OBufList list = listOfTexts(numbers(size));
        EXPECT_EQ(list.size(), size);
        EXPECT_EQ(list.empty(), size == 0);
        EXPECT_EQ(textsOf(list), numbers(size));
        if (size != 0) {
            EXPECT_EQ(list.front().data(), list.begin()->data());
            EXPECT_EQ(list.back().data(), (list.end() - 1)->data());
        }
    }
}

TEST(BufList, CopiesShareTheBlocksAndMovesEmptyTheSource) {
    for (std::size_t size = 0; size < kSizes; ++size) {
        OBufList list = listOfTexts(numbers(size));
        OBufList copy = list;
        EXPECT_EQ(textsOf(copy), numbers(size));
        for (std::size_t index = 0; index < size; ++index) {
            EXPECT_EQ(copy.begin()[index].buffer, list.begin()[index].buffer);
        }
        OBufList moved = std::move(list);
        EXPECT_EQ(textsOf(moved), numbers(size));
        EXPECT_TRUE(list.empty());
        list.push_back(viewOf("again"));
        EXPECT_EQ(textsOf(list), Texts({"again"}));
        copy = std::move(moved);
        EXPECT_EQ(textsOf(copy), numbers(size));
        EXPECT_TRUE(moved.empty());
    }
}

TEST(BufList, AppendMovesAllViewsToTheEnd) {
    for (std::size_t first = 0; first < kSizes; ++first) {
        for (std::size_t second = 0; second < kSizes; ++second) {
            OBufList list = listOfTexts(numbers(first));
            OBufList more = listOfTexts(numbers(second));
            Texts expected = numbers(first);
            const Texts added = numbers(second);
            expected.insert(expected.end(), added.begin(), added.end());
            list.append(std::move(more));
            EXPECT_EQ(textsOf(list), expected);
            EXPECT_TRUE(more.empty());
        }
    }
}

TEST(BufList, EraseTakesOutOneViewWhereverItIs) {
    for (std::size_t size = 1; size < kSizes; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
            OBufList list = listOfTexts(numbers(size));
            Texts expected = numbers(size);
            expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(place));
            list.erase(list.begin() + place);
            EXPECT_EQ(textsOf(list), expected) << place << " of " << size;
        }
    }
}

TEST(BufList, ErasingToTheLastViewAndAddingAgainKeepsTheOrder) {
    OBufList list = listOfTexts(numbers(6));
    while (!list.empty()) {
        list.erase(list.begin());
    }
    list.append(listOfTexts(numbers(6)));
    EXPECT_EQ(textsOf(list), numbers(6));
}

TEST(BufList, WhatLeavesTheListIsReleased) {
    for (std::size_t size = 1; size < kSizes; ++size) {
        OBufView view = viewOf("x");
        const std::weak_ptr<ORefBuffer> block = std::exchange(view, {}).buffer;
        EXPECT_TRUE(block.expired());
        OBufList list = listOfTexts(numbers(size));
        const std::weak_ptr<ORefBuffer> last = list.back().buffer;
        const std::weak_ptr<ORefBuffer> first = list.front().buffer;
        list.erase(list.end() - 1);
        EXPECT_TRUE(last.expired()) << size;
        list.clear();
        EXPECT_TRUE(first.expired()) << size;
        EXPECT_TRUE(list.empty());
    }
}

TEST(BufList, SwapExchangesListsOfAnySizes) {
    for (std::size_t first = 0; first < kSizes; ++first) {
        for (std::size_t second = 0; second < kSizes; ++second) {
            OBufList one = listOfTexts(numbers(first));
            OBufList two = listOfTexts(numbers(second));
            one.swap(two);
            EXPECT_EQ(textsOf(one), numbers(second));
            EXPECT_EQ(textsOf(two), numbers(first));
        }
    }
}

TEST(BufList, ACountGivesAsManyCopiesOfOneView) {
    for (std::size_t size = 0; size < kSizes; ++size) {
        EXPECT_EQ(textsOf(OBufList(size, viewOf("x"))), Texts(size, "x"));
    }
    EXPECT_EQ(OBufList(3).size(), 3U);
    EXPECT_EQ(textsOf({viewOf("a"), viewOf("b"), viewOf("c")}), Texts({"a", "b", "c"}));
}

TEST(BufList, MoreViewsThanMemoryCouldHoldAreALengthError) {
    try {
        OBufList list(std::numeric_limits<std::size_t>::max() / 2);
        FAIL() << "no exception";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "list<T> too long");
    }
}

TEST(BufList, TotalLengthIsTheSumOfTheViews) {
    EXPECT_EQ(totalLength({}), 0U);
    EXPECT_EQ(totalLength({viewOf("abc"), OBufView(), viewOf("defgh")}), 8U);
}
