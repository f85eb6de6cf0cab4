#include "log/record_pool.h"

#include <gtest/gtest.h>

#include <vector>

using orvel::log4z::LogRecord;
using orvel::log4z::RecordPool;

TEST(RecordPool, AReturnedRecordIsTakenAgain) {
    RecordPool pool;
    LogRecord* first = pool.take();
    pool.put(first);
    EXPECT_EQ(pool.size(), 1u);
    EXPECT_EQ(pool.take(), first);
    EXPECT_EQ(pool.size(), 0u);
    pool.put(first);
}

TEST(RecordPool, ANewRecordBeginsWithFortyZeros) {
    RecordPool pool;
    LogRecord* record = pool.take();
    const auto* bytes = reinterpret_cast<const unsigned char*>(record);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(bytes[i], 0) << "byte " << i;
    }
    pool.put(record);
}

TEST(RecordPool, KeepsTwoHundredRecordsAndFreesTheRest) {
    RecordPool pool;
    std::vector<LogRecord*> taken;
    for (int i = 0; i < 250; ++i) {
        taken.push_back(pool.take());
    }
    pool.put(taken.data(), 150);
    EXPECT_EQ(pool.size(), 150u);
    pool.put(taken.data() + 150, 100);
    EXPECT_EQ(pool.size(), RecordPool::kLimit);
    pool.clear();
    EXPECT_EQ(pool.size(), 0u);
}
