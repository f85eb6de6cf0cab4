// Any order of setting changes, lines, clock steps and restarts gives the same files as the model.

#include "support/effort.h"
#include "support/log/log_fixture.h"
#include "support/log/log_model.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

/// One sequence of operations on an engine with files in memory and on the model.
class Sequence {
public:
    explicit Sequence(unsigned seed) : mRandom(seed), mManager({mClock, mPacked, mConsole, "host"}) {
        mAcrossMidnight = pick(4) == 0;
        mClock.setLocal({2026, 2, 28, 23, 59, 50});
        mId = mManager.createLogger("Test");
        mManager.setLoggerPath(mId, "logs");
        mManager.setLoggerDisplay(mId, false);
        putOldFiles();
        start();
    }

    void run() {
        for (int step = 0; step < 30; ++step) {
            takeStep();
        }
        sync();
        mManager.stop();
    }

    void expectSame() {
        ASSERT_EQ(mModel.wrong, "") << "is not in its archive";
        ASSERT_TRUE(mPacked.empty()) << "one more was packed";
        std::vector<std::string> expected;
        for (const auto& [path, content] : mModel.files) {
            expected.push_back(path);
        }
        ASSERT_EQ(mDisk.paths(), expected);
        for (const std::string& path : expected) {
            ASSERT_TRUE(mDisk.content(path) == mModel.files[path])
                << path << " has " << mDisk.content(path).size() << " bytes and not "
                << mModel.files[path].size();
        }
        const History& history = mManager.slot(mId).file.history();
        ASSERT_EQ(history.count(), mModel.history.size());
        ASSERT_EQ(history.writeLength(), mModel.historyBytes());
    }

    long long lines() const { return mLines; }

private:
    unsigned pick(unsigned below) { return static_cast<unsigned>(mRandom() % below); }

    std::int64_t now() { return mClock.now().seconds; }

    /// The writer takes the time when it opens a file, so it must be done before the clock moves.
    void sync() { ASSERT_TRUE(mManager.flush(kTimeoutMs)); }

    /// The model looks into the archive that was just packed. Also, the C library's time zone, which packing and
    /// unpacking ask for, is guarded by a lock that the thread sanitizer does not see: not both at once.
    void syncForPacking() {
        if (mModel.settings.zip) {
            sync();
        }
    }

    void start() {
        mManager.start();
        mManager.setLoggerDisplay(
            mId, false); // a flush waits for it, and so for the history, which is read before
        sync();
        mModel.load(now());
    }

    void putOldFiles() {
        const char* names[] = {"logs/sonvia_Test_2026-02-28-23-59-51.log",
                               "logs/2026_01/sonvia_Test_2026010100.log",
                               "logs/sonvia_Test_2026-02-28-23-59-50.log.zip", "logs/sonvia_notes.log",
                               "logs/sonvia_Test_2025-12-31-00-00-00.log"};
        for (const char* name : names) {
            if (pick(3) == 0) {
                const std::string content(pick(6) == 0 ? 1048576u + pick(1048576) : pick(300), 'o');
                mDisk.put(name, content);
                mModel.files[name] = content;
            }
        }
    }

    void takeStep() {
        const unsigned what = pick(100);
        if (what < 50) {
            line(20 + pick(200));
        } else if (what < 51) {
            for (int i = 0; i < 135; ++i) { // a little over a megabyte
                line(8000);
            }
        } else if (what < (mAcrossMidnight ? 80u : 66u)) {
            stepClock();
        } else if (what < 69) {
            mManager.loadHistory();
            syncForPacking();
            mModel.load(now());
        } else if (what < 71) {
            restart();
        } else {
            changeSetting();
        }
    }

    void line(std::size_t size) {
        const int level = static_cast<int>(pick(4)) + kLevelDebug;
        LogRecord* record = mManager.makeRecord(mId, level);
        std::string text(record->content, static_cast<std::size_t>(record->contentLength));
        text.append(size, static_cast<char>('a' + pick(26)));
        text.copy(record->content, text.size());
        record->contentLength = static_cast<std::int32_t>(text.size());
        mManager.pushLog(record, nullptr, 0);
        syncForPacking();
        mModel.line(level, text + "\r\n", now(), now());
        ++mLines;
    }

    void stepClock() {
        constexpr std::int64_t kSteps[] = {1, 1, 2, 10, -1, -10, 3600, 86400, -86400, 3 * 86400, 31 * 86400};
        sync();
        if (mAcrossMidnight) {
            mClock.setLocal({2026, 2, 28, 23, 59, 59});
            mClock.advance(pick(2));
            return;
        }
        mClock.advance(kSteps[pick(std::size(kSteps))]);
    }

    void restart() {
        sync();
        mManager.stop();
        mManager.enableLogger(mId, true);
        mModel.settings.enable = true;
        start();
    }

    void changeSetting() {
        ModelSettings& set = mModel.settings;
        constexpr std::uint32_t kLimits[] = {0, 1, 1, 2, 3, 4096};
        constexpr std::uint32_t kTotals[] = {0, 2, 3, 5, 4099};
        constexpr std::int64_t kReserves[] = {-1, 0, 1, 5, 86400, 10 * 86400};
        const bool flag = pick(2) == 0;
        switch (pick(12)) {
        case 0:
            set.limitMb = kLimits[pick(std::size(kLimits))];
            mManager.setLoggerLimitsize(mId, set.limitMb);
            set.limitMb = set.limitMb == 0 ? kNoLimit : set.limitMb;
            break;
        case 1:
            set.totalMb = kTotals[pick(std::size(kTotals))];
            mManager.setLoggerTotalsize(mId, set.totalMb);
            set.totalMb = set.totalMb == 0 ? kNoLimit : set.totalMb;
            break;
        case 2:
            set.reserve = kReserves[pick(std::size(kReserves))];
            mManager.setLoggerReserveTime(mId, set.reserve);
            set.reserve = set.reserve < 0 ? 0 : set.reserve;
            break;
        case 3:
            set.type = static_cast<int>(pick(6));
            mManager.setLoggerReserveDelType(mId, set.type);
            set.type = set.type >= 4 ? 2 : set.type;
            break;
        case 4:
        case 5:
            mManager.setLoggerZip(mId, set.zip = flag);
            break;
        case 6:
            mManager.setLoggerMonthdir(mId, set.monthdir = flag);
            break;
        case 7:
            mManager.setLoggerOutFile(mId, set.outfile = pick(4) != 0);
            break;
        default:
            changeOtherSetting();
        }
        mModel.close();
    }

    void changeOtherSetting() {
        ModelSettings& set = mModel.settings;
        switch (pick(5)) {
        case 0:
            mManager.setLoggerLevel(mId, set.level = static_cast<int>(pick(4)));
            sync(); // callers use the level that the writer has set
            break;
        case 1:
            mManager.enableLogger(mId, set.enable = pick(4) != 0);
            sync();
            break;
        case 2:
            set.name = pick(2) == 0 ? "sonvia_Test" : "sonvia_Te";
            mManager.setLoggerName(mId, set.name.c_str());
            break;
        case 3:
            set.path = pick(2) == 0 ? "logs/" : "logs/deeper/";
            mManager.setLoggerPath(mId, set.path.c_str());
            break;
        default:
            set.version = pick(3) == 0 ? "2" : "";
            mManager.setLoggerVersion(mId, set.version.c_str());
        }
    }

    std::mt19937 mRandom;
    FakeClock mClock;
    MemoryFiles mDisk;
    PackedArchives mPacked{mDisk};
    RecordingConsole mConsole;
    LogerManager mManager;
    LogModel mModel{mPacked};
    int mId = 0;
    bool mAcrossMidnight =
        false; ///< to and fro, so that the few names of two seconds are used again and again
    long long mLines = 0;
};

} // namespace

TEST(LogModelTest, AnyOrderOfSettingChangesLinesClockStepsAndRestartsGivesTheModelsFiles) {
    const int sequences = rounds(200, 2000);
    long long lines = 0;
    for (int seed = 1; seed <= sequences; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Sequence sequence(static_cast<unsigned>(seed));
        sequence.run();
        sequence.expectSame();
        lines += sequence.lines();
        ASSERT_FALSE(HasFailure());
    }
    tried("log: sequences of settings and lines against the model", sequences, "sequences");
    tried("log: lines in those sequences", lines, "lines");
}
