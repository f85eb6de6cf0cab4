#include "protocol/command_names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace {

struct Group {
    std::int32_t first;
    std::vector<std::string> requests; ///< on even ids from `first` on, each followed by its acknowledgement
};

// The vocabulary in another form than the library's: only the requests, in their order.
const std::vector<Group>& pairedGroups() {
    static const std::vector<Group> groups = {
        {0,
         {"Open",
          "Close",
          "Pause",
          "Resume",
          "Flush",
          "SetPlayList",
          "SetVolume",
          "GetVolume",
          "GetPosition",
          "SetMediaInfo",
          "GetMediaInfo",
          "SetChannel",
          "GetChannel",
          "HeartBeat",
          "GetState",
          "GetDeviceInfo",
          "MuteAudio",
          "Notify",
          "RemoveDev",
          "SetBtP2PGO",
          "Auth",
          "TestCmd",
          "WakeUp",
          "AddMirror",
          "DelMirror",
          "CloseMirror",
          "GetMirrorMode",
          "GetVersion",
          "SetBtFrequency",
          "GetBtFrequency",
          "SyncMediaInfo",
          "SyncState",
          "SetPlaySource",
          "StartMediaPlayer",
          "PauseMediaPlayer",
          "ResumeMediaPlayer",
          "SeekMediaPlayer",
          "MediaPlayerPrev",
          "MediaPlayerNext",
          "PauseSender",
          "ResumeSender",
          "ExitMirror",
          "NLPSend",
          "SetPosition",
          "SetDeviceInfo",
          "SetNotifyPlaySource",
          "SeekDone",
          "SetMediaState",
          "TryCloseZelk",
          "SpeakerRandomPlay"}},
        {1024,
         {"AloneMediaPlayerStart", "AloneMediaPlayerStop", "AloneMediaPlayerPause", "AloneMediaPlayerResume",
          "AloneMediaPlayerPrev", "AloneMediaPlayerNext", "AloneMediaPlayerSeek", "AloneMediaPlayerSeekDone",
          "AloneMediaPlayerSetPosition", "AloneMediaPlayerGetPosition", "AloneMediaPlayerSetState",
          "AloneMediaPlayerGetState", "AloneMediaPlayerSetMediaInfo", "AloneMediaPlayerGetMediaInfo"}},
        {4098, {"AVMediaPlay", "SetDuration", "SetBuffering", "AVMediaPlayError", "PlayFinish"}},
        {4109, {"SendHeadSet"}},
        {5120, {"SafetyInfo", "SafetyAuth"}},
        {65506, {"OpenCoreDump", "OpenSsh", "CloseSsh"}},
    };
    return groups;
}

struct Single {
    std::int32_t id;
    std::string name;
};

// Ids without a pair, and the three acknowledgements that have a name or an id of their own.
const std::vector<Single>& singles() {
    static const std::vector<Single> list = {
        {35, "Notify_dummy_Ack"},    {43, "Test_Cmd_Ack"},     {4097, "AVMustBeFirst"},
        {4108, "AVMustBeLast"},      {8193, "StopPCAudioZLK"}, {61808, "OpenDebugLog"},
        {65505, "OpenDebugLog_Ack"}, {65530, "Priv"},
    };
    return list;
}

std::set<std::int32_t> knownIds() {
    std::set<std::int32_t> ids;
    for (const Group& group : pairedGroups()) {
        for (std::size_t index = 0; index < group.requests.size(); ++index) {
            const std::int32_t request = group.first + static_cast<std::int32_t>(2 * index);
            ids.insert({request, request + 1});
        }
    }
    for (const Single& single : singles()) {
        ids.insert(single.id);
    }
    return ids;
}

std::string unknown(std::int32_t id) {
    return std::to_string(id) + " is unknown";
}

} // namespace

TEST(CommandNames, EveryRequestOfAPairedGroupHasItsName) {
    for (const Group& group : pairedGroups()) {
        for (std::size_t index = 0; index < group.requests.size(); ++index) {
            const std::int32_t id = group.first + static_cast<std::int32_t>(2 * index);
            EXPECT_EQ(commandName(id), group.requests[index]) << id;
        }
    }
}

TEST(CommandNames, AnAcknowledgementIsTheNextIdAndTheRequestsNameWithASuffix) {
    for (const Group& group : pairedGroups()) {
        for (std::size_t index = 0; index < group.requests.size(); ++index) {
            const std::int32_t ack = group.first + static_cast<std::int32_t>(2 * index) + 1;
            if (ack != 35 && ack != 43) {
                EXPECT_EQ(commandName(ack), group.requests[index] + "_Ack") << ack;
            }
        }
    }
}

TEST(CommandNames, NotifyAndTestCmdHaveAcknowledgementsWithNamesOfTheirOwn) {
    EXPECT_EQ(commandName(34), "Notify");
    EXPECT_EQ(commandName(35), "Notify_dummy_Ack");
    EXPECT_EQ(commandName(42), "TestCmd");
    EXPECT_EQ(commandName(43), "Test_Cmd_Ack");
}

TEST(CommandNames, IdsWithoutAPairHaveTheirNames) {
    for (const Single& single : singles()) {
        EXPECT_EQ(commandName(single.id), single.name) << single.id;
    }
}

TEST(CommandNames, TheGeneralGroupEndsAt99) {
    EXPECT_EQ(commandName(0), "Open");
    EXPECT_EQ(commandName(99), "SpeakerRandomPlay_Ack");
    EXPECT_EQ(commandName(100), "100 is unknown");
}

TEST(CommandNames, TheMediaPlayerGroupsHaveHardEdges) {
    EXPECT_EQ(commandName(1023), "1023 is unknown");
    EXPECT_EQ(commandName(1024), "AloneMediaPlayerStart");
    EXPECT_EQ(commandName(1052), "1052 is unknown");
    EXPECT_EQ(commandName(4096), "4096 is unknown");
    EXPECT_EQ(commandName(4097), "AVMustBeFirst");
    EXPECT_EQ(commandName(4111), "4111 is unknown");
}

TEST(CommandNames, OpenDebugLogHasAnAcknowledgementFarFromItsId) {
    EXPECT_EQ(commandName(61808), "OpenDebugLog");
    EXPECT_EQ(commandName(65504), "65504 is unknown");
    EXPECT_EQ(commandName(65505), "OpenDebugLog_Ack");
}

TEST(CommandNames, OnlyPrivIsKnownNearTheEndOfTheIds) {
    EXPECT_EQ(commandName(65512), "65512 is unknown");
    EXPECT_EQ(commandName(65529), "65529 is unknown");
    EXPECT_EQ(commandName(65530), "Priv");
    EXPECT_EQ(commandName(65531), "65531 is unknown");
    EXPECT_EQ(commandName(65535), "65535 is unknown");
}

TEST(CommandNames, ExactlyTheListedIdsOfAll65536AreKnown) {
    const std::set<std::int32_t> known = knownIds();
    EXPECT_EQ(known.size(), 156U);
    for (std::int32_t id = 0; id <= 65535; ++id) {
        const bool named = commandName(id) != unknown(id);
        ASSERT_EQ(named, known.count(id) != 0) << id;
    }
}

TEST(CommandNames, AnIdOutsideSixteenBitsIsUnknownInSignedDecimal) {
    EXPECT_EQ(commandName(-1), "-1 is unknown");
    EXPECT_EQ(commandName(65536), "65536 is unknown");
    EXPECT_EQ(commandName(65536 + 34), "65570 is unknown");
    EXPECT_EQ(commandName(INT32_MIN), "-2147483648 is unknown");
    EXPECT_EQ(commandName(INT32_MAX), "2147483647 is unknown");
}

TEST(CommandNames, NamesAreUnique) {
    std::set<std::string> names;
    for (const std::int32_t id : knownIds()) {
        EXPECT_TRUE(names.insert(commandName(id)).second) << id;
    }
}

TEST(CommandNames, TheTwoCommandsThatAreSentHaveTheIdsOfTheirNames) {
    EXPECT_EQ(commandName(kCommandNotify), "Notify");
    EXPECT_EQ(commandName(kCommandStopPCAudioZLK), "StopPCAudioZLK");
}
