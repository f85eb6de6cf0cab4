// Every exported function survives a null handle, with the result and the line that its callers know.

#include "SonviaPCAudioDll.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

std::vector<LogLine> linesOf(const char* function, char firstLetter, const std::string& firstText,
                             char nullLetter) {
    return {{firstLetter, kApiTag, function, 0, firstText},
            {nullLetter, kApiTag, function, 0, "handle is NULL"}};
}

} // namespace

TEST(NullHandle, UninitIsTrueWithAWarning) {
    LogCapture log;
    EXPECT_TRUE(uninitSonviaAudioService(nullptr));
    EXPECT_EQ(log.lines(), linesOf("uninitSonviaAudioService", 'I', "uninitSonviaAudioService", 'W'));
}

TEST(NullHandle, ExitAudioProjectionIsFalseWithAnError) {
    LogCapture log;
    EXPECT_FALSE(exitAudioProjection(nullptr));
    EXPECT_EQ(log.lines(), linesOf("exitAudioProjection", 'I', "exitAudioProjection", 'E'));
}

TEST(NullHandle, GetStateIsFourWithAnError) {
    LogCapture log;
    EXPECT_EQ(getState(nullptr), 4U);
    EXPECT_EQ(log.lines(), linesOf("getState", 'D', "getState!", 'E'));
}

TEST(NullHandle, GetSourceNameIsPhoneWithAnError) {
    LogCapture log;
    EXPECT_STREQ(getSourceName(nullptr), "phone");
    EXPECT_EQ(log.lines(), linesOf("getSourceName", 'D', "getSourceName!", 'E'));
}

TEST(NullHandle, SetParamIsFalseWithAnErrorWhateverTheRecord) {
    const AudioServiceParam param = Host::record();
    for (const AudioServiceParam* record : {&param, static_cast<const AudioServiceParam*>(nullptr)}) {
        LogCapture log;
        EXPECT_FALSE(setParam(nullptr, record));
        EXPECT_EQ(log.lines(), linesOf("setParam", 'D', "koru setParam!", 'E'));
    }
}

TEST(NullHandle, SetAccountIDIsFalseWithAnErrorWhateverTheText) {
    for (const char* text : {"someone", "", static_cast<const char*>(nullptr)}) {
        LogCapture log;
        EXPECT_FALSE(setAccountID(nullptr, text));
        EXPECT_EQ(log.lines(), linesOf("setAccountID", 'D', "koru setAccountID!", 'E'));
    }
}
