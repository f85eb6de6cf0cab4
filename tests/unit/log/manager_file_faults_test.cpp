// One busy life of a logger, gone through again and again: each time another call to the files fails.

#include "support/effort.h"
#include "support/log/fake_clock.h"
#include "support/log/line_account.h"
#include "support/log/recording_console.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;
using namespace orvel::log4z;
using Call = MemoryFiles::Call;
using Kind = MemoryFiles::Kind;

namespace {

constexpr int kLines = 14;
constexpr int kLastLines = 4; ///< written after file output was set again

struct CallName {
    Call call;
    const char* name;
    bool hasParts;  ///< can succeed in part
    bool losesLine; ///< its failure may cost lines; that of any other call never does
};

constexpr CallName kCalls[] = {
    {Call::Open, "open", false, true},
    {Call::Write, "write", true, true},
    {Call::WriteAt, "writeAt", true, false},
    {Call::Read, "read", true, false},
    {Call::Size, "size of a path", false, false},
    {Call::FileSize, "size of a file", false, false},
    {Call::WriteThrough, "writeThrough", false, false},
    {Call::Close, "close", false, false},
    {Call::Remove, "remove", false, false},
    {Call::IsFolder, "isFolder", false, false},
    {Call::CreateFolders, "createFolders", false, true},
    {Call::List, "list", true, false},
};

/// Old files, an archive that a killed process has left half, a logger that packs and deletes, a day for each line,
/// names in use, settings that change, the history read once more.
class BusyLife {
public:
    explicit BusyLife(bool newVersion) : mClock(), mManager({mClock, disk, mConsole, "host"}) {
        mClock.setLocal({2026, 3, 9, 8, 0, 0});
        disk.keepRemoved();
        disk.put("logs/sonvia_version", newVersion ? "1" : "2");
        putArchive("2026_02/sonvia_Test_2026-02-01-00-00-00");
        putArchive("2026_02/sonvia_Test_2026-02-02-00-00-00");
        disk.put("logs/sonvia_Test_2026-03-07-00-00-00.log", "old");
        disk.put("logs/sonvia_Test_2026-03-07-00-00-00.log.zip", "PK half");
        mId = mManager.createLogger("Test");
        mManager.setLoggerPath(mId, "logs");
        mManager.setLoggerDisplay(mId, false);
        mManager.setLoggerMonthdir(mId, true);
        mManager.setLoggerVersion(mId, "2");
        mManager.setLoggerZip(mId, true);
        mManager.setLoggerReserveDelType(mId, kReserveBySizeOrTime);
        mManager.setLoggerReserveTime(mId, 8 * 86400);
        mManager.setLoggerLimitsize(mId, 1);
        mManager.setLoggerTotalsize(mId, 3);
    }

    /// False when the writer did not come to an end.
    bool live() {
        bool ends = mManager.start();
        for (int day = 0; day < 3; ++day) {
            ends = ends && line();
            mClock.advance(86400);
        }
        mManager.setLoggerZip(mId, false); // packing is what takes the time
        for (int i = 0; i < 4; ++i) {      // within one second: the next name each time
            ends = ends && line();
            mManager.setLoggerLevel(mId, kLevelInfo);
        }
        mClock.advance(86400);
        for (int i = 0; i < 6; ++i) { // twice what the limits allow, and too young to go by their time
            putArchive("2026_03/sonvia_Test_2026-03-12-00-00-0" + std::to_string(i));
        }
        mManager.loadHistory();
        for (int day = 0; day < kLines - kLastLines - 7; ++day) {
            ends = ends && line();
            mClock.advance(86400);
        }
        for (const CallName& entry : kCalls) {
            callsBefore[entry.call] = disk.calls(entry.call);
        }
        mManager.setLoggerOutFile(mId, true);
        for (int day = 0; day < kLastLines; ++day) {
            ends = ends && line();
            mClock.advance(86400);
        }
        return mManager.stop() && ends;
    }

    LogerManager& manager() { return mManager; }

    MemoryFiles disk;
    std::map<Call, int> callsBefore; ///< the calls made before the last lines

private:
    void putArchive(const std::string& name) {
        static const auto kLarge = std::make_shared<std::string>(kMb, 'z');
        disk.putShared("logs/" + name + ".log.zip", kLarge);
    }

    bool line() { return pushNumbered(mManager, mId, mNumber++, 20) && mManager.flush(kTimeoutMs); }

    FakeClock mClock;
    RecordingConsole mConsole;
    LogerManager mManager;
    int mId = 0;
    int mNumber = 0;
};

/// The limits count what the log knows of: a file that it could not list, weigh or remove is not among them. They are
/// looked after when a file is opened: by a log that can open none any more they are not.
bool limitsHold(Call call, bool forEver) {
    return !(forEver && call == Call::Open) && call != Call::List && call != Call::Size &&
           call != Call::Remove && call != Call::FileSize;
}

void expectSound(BusyLife& life, const CallName& entry, int n, bool forEver) {
    const LineAccount account = accountFor(life.disk, "sonvia_Test_");
    EXPECT_TRUE(account.onceEach());
    EXPECT_TRUE(account.inOrder);
    // A file that cannot be weighed seems empty: its name is taken once more.
    EXPECT_TRUE(account.namesInOrder || entry.call == Call::Size);
    EXPECT_TRUE(account.archivesHold);
    EXPECT_EQ(life.manager().totalRecordsPopped(), static_cast<std::uint64_t>(kLines));
    EXPECT_EQ(account.times.size() + life.manager().totalLinesLost(), static_cast<std::size_t>(kLines));
    EXPECT_TRUE(entry.losesLine || life.manager().totalLinesLost() == 0);
    if (!forEver && n <= life.callsBefore[entry.call]) {
        for (int number = kLines - kLastLines; number < kLines; ++number) {
            EXPECT_TRUE(account.found(number)) << "line " << number << " came after the failure was over";
        }
    }
    if (limitsHold(entry.call, forEver)) {
        EXPECT_LE(life.disk.totalSize("sonvia_Test_"), 3 * kMb + kMb + 8192);
    }
}

int callsOfALife(Call call, bool newVersion) {
    BusyLife life(newVersion);
    EXPECT_TRUE(life.live());
    EXPECT_EQ(accountFor(life.disk, "sonvia_Test_").times.size(), static_cast<std::size_t>(kLines));
    return life.disk.calls(call);
}

int failEach(const CallName& entry, Kind kind, bool newVersion, bool forEver) {
    const int calls = callsOfALife(entry.call, newVersion);
    EXPECT_GT(calls, 0) << entry.name << ": not part of this life";
    for (int n = 1; n <= calls; ++n) {
        SCOPED_TRACE(std::string(entry.name) + " " + std::to_string(n) + " kind " +
                     std::to_string(static_cast<int>(kind)) + (forEver ? " for ever" : "") +
                     (newVersion ? " new version" : ""));
        BusyLife life(newVersion);
        life.disk.failNth(entry.call, n, forEver, kind);
        EXPECT_TRUE(life.live());
        expectSound(life, entry, n, forEver);
        if (::testing::Test::HasFailure()) {
            return n;
        }
    }
    return calls;
}

} // namespace

TEST(LogFaultsOfEachCall, EveryCallThatFailsOnceCostsAtMostItsOwnLinesAndAllAreAccountedFor) {
    long long lives = 0;
    for (const bool newVersion : {false, true}) {
        for (const CallName& entry : kCalls) {
            lives += failEach(entry, Kind::Refused, newVersion, false);
            if (entry.hasParts) {
                lives += failEach(entry, Kind::Partly, newVersion, false);
            }
            if (entry.call == Call::Remove) {
                lives += failEach(entry, Kind::Gone, newVersion, false);
            }
            ASSERT_FALSE(HasFailure());
        }
        if (!longForm()) {
            break;
        }
    }
    tried("log: one file call failing", lives, "lives of a logger");
}

TEST(LogFaultsOfEachCall, EveryCallThatFailsFromSomeTimeOnLeavesAWriterThatAccountsForItsLines) {
    long long lives = 0;
    for (const CallName& entry : kCalls) {
        if (!longForm() && entry.call != Call::Open && entry.call != Call::Write) {
            continue;
        }
        lives += failEach(entry, Kind::Refused, false, true);
        if (entry.hasParts) {
            lives += failEach(entry, Kind::Partly, true, true);
        }
        ASSERT_FALSE(HasFailure());
    }
    tried("log: file calls failing from one on", lives, "lives of a logger");
}
