#pragma once

#include "oracle/bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// The bytes that the fuzzer chose, taken from the front. An empty input goes on giving zeros and nothing.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}

    bool empty() const { return mSize == 0; }

    std::uint8_t takeByte() {
        const oracle::Bytes one = take(1);
        return one.empty() ? 0 : one[0];
    }

    /// The next `size` bytes, or as many as there are.
    oracle::Bytes take(std::size_t size) {
        const std::size_t count = std::min(size, mSize);
        oracle::Bytes bytes(mData, mData + count);
        mData += count;
        mSize -= count;
        return bytes;
    }

    /// The bytes up to a line feed, which is dropped, or to the end.
    oracle::Bytes takeLine() {
        const auto length = static_cast<std::size_t>(std::find(mData, mData + mSize, '\n') - mData);
        oracle::Bytes line = take(length);
        take(1);
        return line;
    }

    oracle::Bytes rest() { return take(mSize); }

private:
    const std::uint8_t* mData;
    std::size_t mSize;
};
