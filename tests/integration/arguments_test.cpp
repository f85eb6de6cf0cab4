// Arguments that a host should not pass and some do.
#include <cstring>
#include <limits>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"

namespace {

using support::Json;

class Arguments : public support::ServiceTest {
protected:
    // A connected service ends at once when it is asked to.
    void connect() {
        ASSERT_TRUE(standin.waitForEvent("listen"));
        const AudioServiceParam param = support::completeParam();
        ASSERT_TRUE(api.setParam(handle, &param));
        ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    }
};

TEST_F(Arguments, NullHandleIsSurvivedByEveryFunction) {
    const AudioServiceParam param = support::completeParam();
    EXPECT_EQ(api.state(nullptr), 4U);
    EXPECT_STREQ(api.sourceName(nullptr), "phone");
    EXPECT_FALSE(api.exitProjection(nullptr));
    EXPECT_FALSE(api.setParam(nullptr, &param));
    EXPECT_FALSE(api.setParam(nullptr, nullptr));
    EXPECT_FALSE(api.setAccountID(nullptr, "account"));
    EXPECT_FALSE(api.setAccountID(nullptr, nullptr));
    EXPECT_TRUE(api.uninit(nullptr));
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Arguments, NullRecordIsRefusedAndTheNextOneTaken) {
    start("");
    EXPECT_FALSE(api.setParam(handle, nullptr));
    const AudioServiceParam param = support::completeParam();
    EXPECT_TRUE(api.setParam(handle, &param));
    EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
}

TEST_F(Arguments, RecordWithoutOneOfItsPointersIsRefusedAndStartsNoThread) {
    start("");
    const std::size_t threads = support::ownSize().threads;
    AudioServiceParam noEvent = support::completeParam();
    noEvent.onEvent = nullptr;
    AudioServiceParam noError = support::completeParam();
    noError.onError = nullptr;
    AudioServiceParam noContext = support::completeParam();
    noContext.context = nullptr;
    for (const AudioServiceParam* param : {&noEvent, &noError, &noContext}) {
        EXPECT_FALSE(api.setParam(handle, param));
    }
    EXPECT_EQ(support::ownSize().threads, threads);
    EXPECT_TRUE(standin.recorded("connect").empty());

    const AudioServiceParam complete = support::completeParam();
    EXPECT_TRUE(api.setParam(handle, &complete));
    EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
}

TEST_F(Arguments, RefusedRecordLeavesTheSessionsCallbacksInPlace) {
    startAndConfigure("wait packet key KORUInfo\nnote ready\nwait file go\nnotify int buffering-start 1\n");
    ASSERT_TRUE(standin.waitForNote("ready"));
    AudioServiceParam noEvent = support::completeParam();
    noEvent.onEvent = nullptr;
    EXPECT_FALSE(api.setParam(handle, &noEvent));
    standin.signal("go");
    EXPECT_TRUE(events.waitFor(support::event(200001, 0)));
}

TEST_F(Arguments, TextsWithoutTerminatorAreReadToTheirLastByteAndNoFurther) {
    start("");
    AudioServiceParam param = support::completeParam();
    std::memset(param.accountID, 'a', sizeof param.accountID);
    std::memset(param.deviceID, 'd', sizeof param.deviceID);
    std::memset(param.sn, 's', sizeof param.sn);
    std::memset(param.model, 'm', sizeof param.model);
    std::memset(param.bluetoothMac, 'b', sizeof param.bluetoothMac);
    std::memset(param.pcName, 'p', sizeof param.pcName);
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    const Json packet = standin.packets(support::kNotify, "KORUInfo").at(0);
    const Json::List& inner = entryOf(packet.at("entries").list(), "KORUInfo").at("value").list();
    EXPECT_EQ(entryOf(inner, "accountID").at("value").text(), std::string(256, 'a'));
    EXPECT_EQ(entryOf(inner, "deviceID").at("value").text(), std::string(256, 'd'));
    EXPECT_EQ(entryOf(inner, "sn").at("value").text(), std::string(256, 's'));
    EXPECT_EQ(entryOf(inner, "model").at("value").text(), std::string(256, 'm'));
    EXPECT_EQ(entryOf(inner, "bluetoothMac").at("value").text(), std::string(256, 'b'));
    EXPECT_EQ(entryOf(inner, "pcName").at("value").text(), std::string(256, 'p'));
}

TEST_F(Arguments, AccountOverAnUnterminatedOneIsStillReadToTheFieldsEnd) {
    start("");
    AudioServiceParam param = support::completeParam();
    std::memset(param.accountID, 'a', sizeof param.accountID);
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    ASSERT_TRUE(api.setAccountID(handle, "new"));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "accountID"));
    const Json packet = standin.packets(support::kNotify, "accountID").at(0);
    EXPECT_EQ(entryOf(packet.at("entries").list(), "accountID").at("value").text(),
              "new" + std::string(253, 'a'));
}

TEST_F(Arguments, EmptyTextsAreSentAsEmpty) {
    start("");
    AudioServiceParam param = support::completeParam();
    std::memset(param.accountID, 0, sizeof param - offsetof(AudioServiceParam, accountID));
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    const Json packet = standin.packets(support::kNotify, "KORUInfo").at(0);
    for (const Json& entry : entryOf(packet.at("entries").list(), "KORUInfo").at("value").list()) {
        EXPECT_EQ(entry.at("value").text(), "");
    }
}

TEST_F(Arguments, NullLogFolderIsReadAsAnEmptyOne) {
    // The library keeps the folder of the first handle for its log; it must not be this one.
    start("");
    stop();
    standin.play("");
    handle = api.init(nullptr, SONVIA_LOG_ERROR);
    ASSERT_NE(handle, nullptr);
    ASSERT_TRUE(standin.waitForEvent("start"));
    EXPECT_EQ(standin.recorded("start").at(0).at("argv").list().back().text(), "4");
}

TEST_F(Arguments, LevelsThatDoNotExistAreHandedOnAndDoNoHarm) {
    int tried = 0;
    for (const int level :
         {-1, 2, 5, 1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        standin.play("");
        handle = api.init(support::logFolder().c_str(), level);
        ASSERT_NE(handle, nullptr) << level;
        ASSERT_NO_FATAL_FAILURE(connect());
        EXPECT_EQ(standin.recorded("start").at(0).at("argv").list().back().text(), std::to_string(level));
        stop();
        ++tried;
    }
    support::tried("bad arguments: log levels", tried, "calls");
}

TEST_F(Arguments, TextsFullOfFormatsAndControlBytesAreSentAsTheyAre) {
    start("");
    const std::string evil = "%n%s%d%1000000d\x01\x7F\x80\xFF\r\n\t\"\\";
    AudioServiceParam param = support::completeParam();
    std::strcpy(param.pcName, evil.c_str());
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    const Json packet = standin.packets(support::kNotify, "KORUInfo").at(0);
    const Json::List& inner = entryOf(packet.at("entries").list(), "KORUInfo").at("value").list();
    EXPECT_EQ(entryOf(inner, "pcName").at("value").text(), evil);
    ASSERT_TRUE(api.setAccountID(handle, evil.c_str()));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "accountID"));
    const Json account = standin.packets(support::kNotify, "accountID").at(0);
    EXPECT_EQ(entryOf(account.at("entries").list(), "accountID").at("value").text(), evil);
}

} // namespace
