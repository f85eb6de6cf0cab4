// Twenty loggers, eight producers, and a disk that fails now and then.

#include "platform/clock.h"
#include "support/effort.h"
#include "support/log/line_account.h"
#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

class ManyLoggers : public LogEngine {};

using Call = MemoryFiles::Call;
using Kind = MemoryFiles::Kind;

constexpr int kProducers = 8;
constexpr int kRunning = 1000000; ///< numbers of one producer

std::string keyOf(int logger) {
    return "Of" + std::to_string(logger) + "End"; // no name is part of another
}

/// Each producer's numbers must rise within every file; returns how many lines there are.
std::size_t linesIn(const MemoryFiles& disk) {
    std::size_t lines = 0;
    std::vector<MemoryFiles::Removed> all = disk.removed();
    for (const std::string& path : disk.pathsWith(".log")) {
        all.push_back({path, disk.content(path), ""});
    }
    for (const MemoryFiles::Removed& file : all) {
        int last[kProducers] = {};
        for (const int number : numbersIn(file.content)) {
            int& before = last[number / kRunning];
            EXPECT_GT(number, before) << file.path;
            before = number;
            ++lines;
        }
    }
    return lines;
}

} // namespace

TEST_F(ManyLoggers, TwentyLoggersAndEightProducersOnAFailingDiskAccountForEveryLine) {
    const int lines = rounds(2000, 40000); // of each producer
    files.keepRemoved();
    for (int logger = 0; logger < LOGGER_MAX; ++logger) {
        const int id = makeQuietLogger(keyOf(logger).c_str());
        manager.setLoggerTotalsize(id, logger % 2 == 0 ? 0 : 2);
        manager.setLoggerLimitsize(id, 1);
    }
    ASSERT_TRUE(manager.start());
    std::atomic<std::size_t> accepted{0};
    std::vector<std::thread> producers;
    for (int producer = 0; producer < kProducers; ++producer) {
        producers.emplace_back([&, producer] {
            std::mt19937 random(static_cast<unsigned>(producer));
            for (int line = 1; line <= lines; ++line) {
                const int id = static_cast<int>(random() % LOGGER_MAX);
                accepted += pushNumbered(manager, id, producer * kRunning + line, 2) ? 1 : 0;
                if (line % 500 == 0) {
                    clock.advance(40000);
                    manager.setLoggerOutFile(id, true);
                    files.failNth(random() % 2 == 0 ? Call::Open : Call::Write,
                                  static_cast<int>(random() % 3 + 1), false,
                                  random() % 2 == 0 ? Kind::Partly : Kind::Refused);
                }
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    manager.stop();
    EXPECT_EQ(accepted.load(), static_cast<std::size_t>(kProducers) * static_cast<std::size_t>(lines));
    EXPECT_EQ(manager.totalRecordsPopped(), accepted.load());
    EXPECT_EQ(linesIn(files) + manager.totalLinesLost(), accepted.load());
    support::tried("log: lines of eight producers on a failing disk", static_cast<long long>(accepted.load()),
                   "lines");
}

TEST_F(ManyLoggers, AFullDiskCostsNoLineThatIsWrittenAfterwards) {
    const int rounds = support::rounds(100, 3000);
    files.keepRemoved();
    const int id = makeQuietLogger();
    ASSERT_TRUE(manager.start());
    std::mt19937 random(7);
    std::size_t pushed = 0;
    for (int round = 0; round < rounds; ++round) {
        files.failNth(Call::Write, 1, true, random() % 2 == 0 ? Kind::Partly : Kind::Refused);
        for (auto line = random() % 40 + 1; line > 0; --line) {
            pushed += pushNumbered(manager, id, static_cast<int>(pushed), 3) ? 1 : 0;
        }
        ASSERT_TRUE(manager.flush(kTimeoutMs));
        files.failNothing();
        clock.advance(1);
        EXPECT_TRUE(pushNumbered(manager, id, static_cast<int>(pushed++), 3));
        ASSERT_TRUE(manager.flush(kTimeoutMs));
        const std::vector<int> newest = numbersIn(files.content(files.pathsWith("sonvia_Test_").back()));
        ASSERT_FALSE(newest.empty());
        ASSERT_EQ(newest.back(), static_cast<int>(pushed) - 1);
    }
    manager.stop();
    EXPECT_EQ(manager.totalRecordsPopped(), pushed);
    const LineAccount account = accountFor(files, "sonvia_Test_");
    EXPECT_TRUE(account.onceEach());
    EXPECT_TRUE(account.namesInOrder);
    EXPECT_EQ(account.times.size() + manager.totalLinesLost(), pushed);
    EXPECT_GE(manager.totalLinesLost(), static_cast<std::uint64_t>(rounds));
    support::tried("log: disk full and free again", rounds);
}
