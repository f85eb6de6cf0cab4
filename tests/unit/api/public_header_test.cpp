#include "SonviaPCAudioDll.h"
#include "support/log_capture.h"
#include "unit/api/public_header.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

using namespace support;

namespace {

// The type is not the function's: the sanitizer would report what this test is about.
#ifdef __clang__
[[clang::no_sanitize("function")]]
#endif
const char*
calledForAPointer(void (*untyped)()) {
    return reinterpret_cast<const char* (*)()>(untyped)();
}

} // namespace

TEST(PublicHeader, TheRecordHas1560BytesAndFixedOffsets) {
    EXPECT_EQ(sizeof(AudioServiceParam), 1560U);
    EXPECT_EQ(offsetof(AudioServiceParam, onEvent), 0U);
    EXPECT_EQ(offsetof(AudioServiceParam, onError), 8U);
    EXPECT_EQ(offsetof(AudioServiceParam, context), 16U);
    EXPECT_EQ(offsetof(AudioServiceParam, accountID), 24U);
    EXPECT_EQ(offsetof(AudioServiceParam, deviceID), 280U);
    EXPECT_EQ(offsetof(AudioServiceParam, sn), 536U);
    EXPECT_EQ(offsetof(AudioServiceParam, model), 792U);
    EXPECT_EQ(offsetof(AudioServiceParam, bluetoothMac), 1048U);
    EXPECT_EQ(offsetof(AudioServiceParam, pcName), 1304U);
    EXPECT_EQ(sizeof(AudioServiceParam::pcName), 256U);
}

TEST(PublicHeader, TheConstantsHaveTheirNumbers) {
    EXPECT_EQ(SONVIA_EVENT_BUFFERING_STARTED, 200001);
    EXPECT_EQ(SONVIA_EVENT_BUFFERING_ENDED, 200002);
    EXPECT_EQ(SONVIA_EVENT_FIRST_AUDIO, 200003);
    EXPECT_EQ(SONVIA_EVENT_MODE_CHANGED, 200006);
    EXPECT_EQ(SONVIA_ERROR_CONNECTION, -2);
    EXPECT_EQ(SONVIA_ERROR_STREAM, -3);
    EXPECT_EQ(SONVIA_STATE_UNKNOWN, 4);
    EXPECT_EQ(SONVIA_TEXT_SIZE, 256);
    EXPECT_EQ(SONVIA_LOG_DEBUG, 0);
    EXPECT_EQ(SONVIA_LOG_INFO, 1);
    EXPECT_EQ(SONVIA_LOG_WARNING, 3);
    EXPECT_EQ(SONVIA_LOG_ERROR, 4);
}

TEST(PublicHeader, ResultsHaveTheWidthThatHostsCompiledAgainst) {
    // A caller looks at one byte of a bool, whatever is in the rest of the register.
    EXPECT_EQ(sizeof(uninitSonviaAudioService(nullptr)), 1U);
    EXPECT_EQ(sizeof(exitAudioProjection(nullptr)), 1U);
    EXPECT_EQ(sizeof(setParam(nullptr, nullptr)), 1U);
    EXPECT_EQ(sizeof(setAccountID(nullptr, nullptr)), 1U);
    EXPECT_EQ(sizeof(getState(nullptr)), 4U);
    EXPECT_EQ(sizeof(getVersion()), 4U);
    EXPECT_EQ(sizeof(bool), sizeOfBoolResultInC());
}

TEST(PublicHeader, CAndCxxAgreeAboutTheRecord) {
    EXPECT_EQ(sizeOfRecordInC(), sizeof(AudioServiceParam));
    AudioServiceParam param;
    std::memset(&param, 0xFF, sizeof param);
    fillRecordInC(&param);
    EXPECT_EQ(param.context, &param);
    EXPECT_STREQ(param.pcName, "c");
    EXPECT_STREQ(param.accountID, "");
    const int before = errorsSeenInC();
    param.onError(SONVIA_ERROR_CONNECTION, 0);
    EXPECT_EQ(errorsSeenInC(), before + 1);
}

TEST(PublicHeader, ACProgramCallsEveryFunction) {
    LogCapture quiet;
    EXPECT_NE(callEveryFunctionInC(), 0);
}

TEST(PublicHeader, GetVersionIsZeroAndLogsNothing) {
    LogCapture log;
    EXPECT_EQ(getVersion(), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(PublicHeader, ACallerThatExpectsAPointerFromGetVersionGetsNull) {
    // Through an untyped pointer, as GetProcAddress gives it.
    void (*untyped)() = reinterpret_cast<void (*)()>(&getVersion);
    EXPECT_EQ(calledForAPointer(untyped), nullptr);
}
