// A handle that has no session: every function says so, to the log and to the host.

#include "log/write_log.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace support;

namespace {

using Calls = std::vector<Host::Call>;

class NoSession : public testing::Test {
protected:
    NoSession() { record->params = Host::record(); }

    Host host;
    ListedRecord record;
    AudioServiceHandle* const handle = record.handle;
};

std::vector<LogLine> linesOf(const char* function, char firstLetter, const std::string& firstText,
                             char letter, const std::string& text) {
    return {{firstLetter, kApiTag, function, 0, firstText}, {letter, kApiTag, function, 0, text}};
}

} // namespace

TEST_F(NoSession, ExitAudioProjectionIsFalseAndReportsAnError) {
    LogCapture log;
    EXPECT_FALSE(exitAudioProjection(handle));
    EXPECT_EQ(log.lines(),
              linesOf("exitAudioProjection", 'I', "exitAudioProjection", 'W', "gQuPCAudio is NULL"));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
    EXPECT_EQ(record->sequence.load(), 0);
}

TEST_F(NoSession, GetStateIsFourAndReportsAnError) {
    LogCapture log;
    EXPECT_EQ(getState(handle), 4U);
    EXPECT_EQ(log.lines(), linesOf("getState", 'D', "getState!", 'W', "quPCAudio is NULL"));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
}

TEST_F(NoSession, GetSourceNameIsPhoneAndReportsAnError) {
    LogCapture log;
    EXPECT_STREQ(getSourceName(handle), "phone");
    EXPECT_EQ(log.lines(), linesOf("getSourceName", 'D', "getSourceName!", 'W', "quPCAudio is NULL!"));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
}

TEST_F(NoSession, SetParamIsFalseAndReportsAnErrorToTheNewRecord) {
    static int other;
    other = 0;
    AudioServiceParam param = Host::record();
    param.onError = [](int code, int value) { other += code == -2 && value == 0 ? 1 : 100; };
    LogCapture log;
    EXPECT_FALSE(setParam(handle, &param));
    EXPECT_EQ(log.lines(), linesOf("setParam", 'D', "koru setParam!", 'E', "gQuPCAudio is NULL"));
    EXPECT_TRUE(Host::errors().empty());
    EXPECT_EQ(other, 1);
    EXPECT_EQ(record->loopThread, nullptr);
}

TEST_F(NoSession, SetAccountIDFailsInTheWordsOfSetParamForCompatibility) {
    LogCapture log;
    EXPECT_FALSE(setAccountID(handle, "someone"));
    EXPECT_EQ(log.lines(), linesOf("setAccountID", 'D', "koru setAccountID!", 'E', "setParam failed!"));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
}

TEST_F(NoSession, WithoutAnErrorCallbackTheResultsAreTheSame) {
    LogCapture quiet;
    record->params = {};
    EXPECT_FALSE(exitAudioProjection(handle));
    EXPECT_EQ(getState(handle), 4U);
    EXPECT_STREQ(getSourceName(handle), "phone");
    EXPECT_FALSE(setAccountID(handle, "someone"));
    const AudioServiceParam empty = {};
    EXPECT_FALSE(setParam(handle, &empty));
}

TEST_F(NoSession, EachLineComesBeforeTheCallback) {
    Host::whenError([](int, int) { writeLog(kLogInfo, "Host", "called"); });
    LogCapture log;
    exitAudioProjection(handle);
    getState(handle);
    getSourceName(handle);
    setAccountID(handle, "someone");
    setParam(handle, &record->params);
    std::vector<std::string> texts;
    for (const LogLine& line : log.lines()) {
        texts.push_back(line.text);
    }
    EXPECT_EQ(texts,
              (std::vector<std::string>{"exitAudioProjection", "gQuPCAudio is NULL", "called", "getState!",
                                        "quPCAudio is NULL", "called", "getSourceName!", "quPCAudio is NULL!",
                                        "called", "koru setAccountID!", "setParam failed!", "called",
                                        "koru setParam!", "gQuPCAudio is NULL", "called"}));
}

TEST_F(NoSession, TheHostMayCallBackFromItsErrorCallback) {
    LogCapture quiet;
    static AudioServiceHandle* place;
    static int depth;
    place = handle;
    depth = 0;
    record->params.onError = [](int, int) {
        if (++depth < 3) {
            getState(place);
        }
    };
    getState(handle);
    EXPECT_EQ(depth, 3);
}

TEST_F(NoSession, UninitKillsTheServiceByNameAndIsTrue) {
    LogCapture log;
    EXPECT_TRUE(uninitSonviaAudioService(handle));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{
                  {'I', kApiTag, "uninitSonviaAudioService", 0, "uninitSonviaAudioService"},
                  {'I', kApiTag, "uninitSonviaAudioService", 0, "QuPCAudio is null, try kill QuPCAudio.exe."},
                  {'I', kApiTag, "killExe", 0, "kill QuPCAudio process"}}));
    EXPECT_TRUE(Host::errors().empty());
}
