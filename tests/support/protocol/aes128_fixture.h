#pragma once

#include "protocol/aes128.h"

#include <gtest/gtest.h>

namespace support {

/// Every test runs on each implementation that this CPU has.
class EachAes128 : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) {
            mCode = aes128Instructions();
            if (mCode == nullptr) {
                GTEST_SKIP() << "this CPU has no AES instructions";
            }
        }
    }

    const Aes128Implementation* mCode = &aes128Portable();
};

} // namespace support
