#include "log/line_prefix.h"

#include "log/log_level.h"
#include "support/log/fake_clock.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using namespace support;
using namespace orvel::log4z;

namespace {

class Prefix : public ::testing::Test {
protected:
    std::string at(const platform::CalendarTime& local, std::uint32_t milliseconds = 0,
                   int level = kLevelInfo) {
        return atMoment(clock, clock.fromLocal(local), milliseconds, level);
    }

    static std::string atMoment(FakeClock& zone, std::int64_t seconds, std::uint32_t milliseconds = 0,
                                int level = kLevelInfo) {
        LinePrefix prefix(zone, "C:\\app\\host.exe");
        return write(prefix, {seconds, milliseconds}, level);
    }

    static std::string write(const LinePrefix& prefix, platform::Moment time, int level = kLevelInfo,
                             std::uint32_t thread = 4711) {
        char text[8192];
        return std::string(text, static_cast<std::size_t>(prefix.write(text, time, thread, level)));
    }

    FakeClock clock;
};

/// North American rules: -5 hours, -4 from 2026-03-08 07:00 UTC to 2026-11-01 06:00 UTC.
std::int64_t easternTime(std::int64_t utc) {
    return utc >= 1772953200 && utc < 1793512800 ? -4 * 3600 : -5 * 3600;
}

} // namespace

TEST_F(Prefix, HoldsDateTimeProcessThreadAndLevelButNoYear) {
    EXPECT_EQ(at({2026, 3, 9, 7, 5, 2}, 42), "03-09 07:05:02.042 [host] [4711] INFO  ");
    EXPECT_EQ(at({2026, 12, 31, 23, 59, 59}, 999), "12-31 23:59:59.999 [host] [4711] INFO  ");
}

TEST_F(Prefix, EveryLevelWordIsFiveCharactersWide) {
    const std::string words[] = {"TRACE", "DEBUG", "INFO ", "WARN ", "ERROR", "ALARM", "FATAL"};
    for (int level = kLevelTrace; level <= kLevelFatal; ++level) {
        const std::string line = at({2026, 1, 1, 0, 0, 0}, 0, level);
        EXPECT_EQ(line.substr(line.size() - 7), " " + words[level] + " ");
    }
}

TEST_F(Prefix, AThreadIdHasAtLeastFourDigits) {
    FakeClock utc;
    const auto threadPart = [&](std::uint32_t id) {
        LinePrefix prefix(utc, "host");
        const std::string line = write(prefix, {0, 0}, kLevelInfo, id);
        return line.substr(line.find("] [") + 2, line.rfind(']') - line.find("] [") - 1);
    };
    EXPECT_EQ(threadPart(7), "[0007]");
    EXPECT_EQ(threadPart(1234), "[1234]");
    EXPECT_EQ(threadPart(4294967295u), "[4294967295]");
}

TEST_F(Prefix, TheProcessNameLosesItsFolderAndItsLastExtension) {
#ifdef _WIN32
    EXPECT_EQ(LinePrefix::processNameOf("C:\\Program Files\\App\\my.host.exe"), "my.host");
#endif
    EXPECT_EQ(LinePrefix::processNameOf("/usr/bin/my.host.exe"), "my.host");
    EXPECT_EQ(LinePrefix::processNameOf("plain"), "plain");
    EXPECT_EQ(LinePrefix::processNameOf(""), "process");
    EXPECT_EQ(LinePrefix::processNameOf("/" + std::string(259, 'p')), std::string(259, 'p'));
    EXPECT_EQ(LinePrefix::processNameOf("/" + std::string(300, 'p') + ".exe"), std::string(259, 'p'))
        << "cut, and the extension with it";
}

TEST_F(Prefix, ThatHasTheLongestNameAndNumberIsWhole) {
    LinePrefix prefix(clock, std::string(400, 'p'));
    const std::string line = write(prefix, {0, 999}, kLevelFatal, 4294967295u);
    EXPECT_EQ(line, "01-01 00:00:00.999 [" + std::string(259, 'p') + "] [4294967295] FATAL ");
    EXPECT_LE(line.size(), LinePrefix::kMaxLength);
}

TEST_F(Prefix, ANewDayAndAStepBackwardsShowTheRightDate) {
    LinePrefix prefix(clock, "host.exe");
    const std::int64_t midnight = clock.fromLocal({2026, 3, 1, 0, 0, 0});
    EXPECT_EQ(write(prefix, {midnight - 1, 999}).substr(0, 18), "02-28 23:59:59.999");
    EXPECT_EQ(write(prefix, {midnight, 0}).substr(0, 18), "03-01 00:00:00.000");
    EXPECT_EQ(write(prefix, {midnight - 86400, 1}).substr(0, 18), "02-28 00:00:00.001");
    EXPECT_EQ(write(prefix, {midnight + 40 * 86400, 5}).substr(0, 18), "04-10 00:00:00.005");
}

TEST_F(Prefix, OnTheShortDayLinesAreAnHourLateForCompatibility) {
    FakeClock eastern(easternTime);
    LinePrefix prefix(eastern, "host.exe");
    const std::int64_t change = 1772953200; // the clock goes from 02:00 to 03:00
    EXPECT_EQ(write(prefix, {change - 1, 0}).substr(0, 14), "03-08 01:59:59");
    EXPECT_EQ(write(prefix, {change, 0}).substr(0, 14), "03-08 02:00:00")
        << "counted from midnight, not read off";
    const std::int64_t midnight = eastern.fromLocal({2026, 3, 8, 0, 0, 0});
    EXPECT_EQ(write(prefix, {midnight + 86399, 0}).substr(0, 14), "03-08 23:59:59")
        << "0:59:59 of the next day";
    EXPECT_EQ(write(prefix, {midnight + 86400, 0}).substr(0, 14), "03-09 01:00:00");
}

TEST_F(Prefix, OnTheLongDayLinesRunPastTwentyFourForCompatibility) {
    FakeClock eastern(easternTime);
    LinePrefix prefix(eastern, "host.exe");
    const std::int64_t midnight = eastern.fromLocal({2026, 11, 1, 0, 0, 0});
    EXPECT_EQ(write(prefix, {midnight + 86399, 0}).substr(0, 14), "11-01 23:59:59");
    EXPECT_EQ(write(prefix, {midnight + 86400, 0}).substr(0, 14), "11-01 24:00:00");
    EXPECT_EQ(write(prefix, {midnight + 90000, 0}).substr(0, 14), "11-02 00:00:00");
}

TEST_F(Prefix, TwoPrefixesOnOneThreadDoNotShareWhatTheyKeep) {
    FakeClock east([](std::int64_t) { return std::int64_t{3600}; });
    LinePrefix here(clock, "here.exe");
    LinePrefix there(east, "there.exe");
    EXPECT_EQ(write(here, {0, 0}).substr(0, 26), "01-01 00:00:00.000 [here] ");
    EXPECT_EQ(write(there, {0, 0}).substr(0, 27), "01-01 01:00:00.000 [there] ");
    EXPECT_EQ(write(here, {0, 0}).substr(0, 26), "01-01 00:00:00.000 [here] ");
}

TEST_F(Prefix, EveryThreadKeepsItsOwnDay) {
    LinePrefix prefix(clock, "host.exe");
    EXPECT_EQ(write(prefix, {0, 0}, kLevelInfo, 1).substr(0, 33), "01-01 00:00:00.000 [host] [0001] ");
    std::thread([&] {
        EXPECT_EQ(write(prefix, {86400, 0}, kLevelInfo, 2).substr(0, 33),
                  "01-02 00:00:00.000 [host] [0002] ");
    }).join();
    EXPECT_EQ(write(prefix, {1, 0}, kLevelInfo, 1).substr(0, 33), "01-01 00:00:01.000 [host] [0001] ");
}
