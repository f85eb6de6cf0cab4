// Services that do their worst, round after round. One row says what the service plays, what the host does meanwhile,
// what is reported to the host, and who has to end the service.
#include <cstring>
#include <iterator>
#include <ostream>
#include <random>

#include "stress/hostile_rounds.h"
#include "support/effort.h"

namespace {

using stress::End;
using stress::Reported;
using support::event;

constexpr int kModeChanged = SONVIA_EVENT_MODE_CHANGED;
constexpr std::size_t kMegabyte = 1024U * 1024U;

class HostileService;

struct Hostility {
    const char* name;
    const char* what;
    std::string (*scenario)(int round);
    void (HostileService::*host)(int round);
    Reported reported;
    End end;

    friend void PrintTo(const Hostility& row, std::ostream* out) { *out << row.what; }
};

class HostileService : public stress::HostileRounds, public testing::WithParamInterface<Hostility> {
public:
    // What the host does between setParam and uninit: each waits until the service has done its worst.
    void waitForError(int /*round*/) { ASSERT_TRUE(events.waitForCount(1)); }

    void waitForNote(int /*round*/) { ASSERT_TRUE(standin.waitForNote("hostile")); }

    void connectAgain(int round) {
        ASSERT_TRUE(events.waitForCount(1));
        standin.signal("open" + std::to_string(round));
        ASSERT_TRUE(standin.waitForEvent("listen"));
        ASSERT_NO_FATAL_FAILURE(configure());
        ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
    }

    // More than the pipe holds.
    void sendUnheard(int round) {
        ASSERT_NO_FATAL_FAILURE(waitForNote(round));
        const std::string account(255, 'a');
        for (int i = 0; i < 1000; ++i) {
            ASSERT_TRUE(api.setAccountID(handle, account.c_str()));
        }
        EXPECT_TRUE(standin.recorded("packet").empty());
    }

    void askInVain(int round) {
        ASSERT_NO_FATAL_FAILURE(waitForNote(round));
        EXPECT_TRUE(api.exitProjection(handle));
        EXPECT_EQ(api.state(handle), 4U);
        EXPECT_STREQ(api.sourceName(handle), "phone");
    }

    void takeModes(int /*round*/) {
        ASSERT_TRUE(events.waitForCount(kDrippedModes));
        for (int i = 0; i < kDrippedModes; ++i) {
            EXPECT_EQ(events.all().at(static_cast<std::size_t>(i)), event(kModeChanged, i));
        }
    }

    // Behind the garbage the stream is read as before.
    void takeEventBehindGarbage(int /*round*/) {
        ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
        EXPECT_EQ(events.all().back(), event(SONVIA_EVENT_BUFFERING_STARTED, 0));
        EXPECT_GT(events.count(), 1U) << "none of the garbage reached a handler";
    }

    void takeHugeName(int /*round*/) {
        // 64 MB take half of the usual timeout under the thread sanitizer already when nothing else runs.
        ASSERT_TRUE(events.waitForCount(1, support::kProcessTimeout));
        const char* name = api.sourceName(handle);
        EXPECT_EQ(std::strlen(name), 64 * kMegabyte);
        EXPECT_EQ(std::strspn(name, "x"), 64 * kMegabyte);
    }

    void countWholePackets(int round) {
        const std::size_t whole = bytesBeforeDeath(round) / kPacketSize;
        ASSERT_TRUE(events.waitForCount(whole + 1));
        EXPECT_EQ(events.count(), whole + 1);
        for (std::size_t i = 0; i < whole; ++i) {
            EXPECT_EQ(events.all().at(i), event(kModeChanged, static_cast<int>(i)));
        }
    }

    static constexpr int kDrippedModes = 5;
    static constexpr std::size_t kPacketSize = 26; // one mode: 9 bytes of header, 17 of payload
    static constexpr std::size_t kPackets = 8;

    // Somewhere in the packets, another place in each round and the same ones in each run.
    static std::size_t bytesBeforeDeath(int round) {
        std::mt19937 random(static_cast<unsigned>(round) + 1);
        return 1 + random() % (kPackets * kPacketSize);
    }
};

std::string hexOf(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kDigits[value >> 4U];
        hex += kDigits[value & 15U];
    }
    return hex;
}

std::string randomBytes(std::mt19937& random, std::size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random() & 0xFFU);
    }
    return bytes;
}

// Mostly the header of a packet that never becomes whole.
std::string garbage(int round) {
    std::mt19937 random(static_cast<unsigned>(round) + 1);
    return "bytes " + hexOf(randomBytes(random, 20000)) + "\nflush\nnote hostile\n";
}

// A payload that is no sense at all, or begins with an entry that a handler reads, of any type and value.
std::string garbagePayload(std::mt19937& random) {
    constexpr const char* kHandled[] = {"player-state", "phone-name", "change-mode", "first-audiopcm",
                                        "buffering-end"};
    constexpr char kTypes[] = {3, 6, 14, 20};
    std::string payload;
    if (random() % 2 == 0) {
        const std::string key = kHandled[random() % std::size(kHandled)];
        payload = static_cast<char>(key.size()) + key;
        if (random() % 4 != 0) {
            payload += kTypes[random() % std::size(kTypes)];
        }
    }
    return payload + randomBytes(random, random() % 40);
}

// Whole packets, so that the garbage in them is read to its end; three in four are notifications.
std::string garbageInPackets(int round) {
    constexpr int kGarbagePackets = 500;
    std::mt19937 random(static_cast<unsigned>(round) + 1);
    std::string stream;
    for (int i = 0; i < kGarbagePackets; ++i) {
        const std::string payload = garbagePayload(random);
        stream += '$' + (random() % 4 != 0 ? std::string("\0\x22", 2) : randomBytes(random, 2)) +
                  randomBytes(random, 2) + std::string(3, '\0') + static_cast<char>(payload.size()) + payload;
    }
    return support::kAfterDeviceInformation + ("bytes " + hexOf(stream)) + "\nnotify int buffering-start 1\n";
}

std::string deathAtAByte(int round) {
    std::string stream;
    for (std::size_t i = 0; i < HostileService::kPackets; ++i) {
        stream += std::string("$\0\x22\0\1\0\0\0\x11\x0B", 10) + "change-mode" + std::string("\6\0\0\0", 4) +
                  static_cast<char>(i);
    }
    stream.resize(HostileService::bytesBeforeDeath(round));
    return support::kAfterDeviceInformation + ("bytes " + hexOf(stream)) + "\ncrash\n";
}

std::string modes(int count) {
    return "repeat " + std::to_string(count) + "\n notify int change-mode $i\nend\n";
}

const Hostility kHostilities[] = {
    {"NeverCreatesItsPipe", "never creates its pipe", [](int) -> std::string { return "no-pipe\n"; },
     &HostileService::waitForError, Reported::kNeverConnected, End::kLibrary},
    {"CreatesItsPipeLate", "creates its pipe late",
     [](int round) {
         return "wait file open" + std::to_string(round) +
                "\nlisten\nwait packet key KORUInfo\nnotify int buffering-start 1\n";
     },
     &HostileService::connectAgain, Reported::kNeverConnected, End::kItself},
    {"AcceptsAndNeverReads", "accepts and never reads",
     [](int) -> std::string { return "stop-reading\nwait connection\nnote hostile\n"; },
     &HostileService::sendUnheard, Reported::kNothing, End::kLibrary},
    {"NeverAnswers", "never answers",
     [](int) -> std::string { return "wait packet key KORUInfo\nnote hostile\n"; },
     &HostileService::askInVain, Reported::kNothing, End::kItself},
    {"ReadsOneByteASecond", "reads one byte a second",
     [](int) -> std::string { return "read-slowly 1 1000\nwait connection\nnote hostile\n"; },
     &HostileService::sendUnheard, Reported::kNothing, End::kLibrary},
    {"DripsOneByteAWrite", "drips one byte a write",
     [](int) {
         return support::kAfterDeviceInformation + ("split\n" + modes(HostileService::kDrippedModes)) +
                "end\n";
     },
     &HostileService::takeModes, Reported::kNothing, End::kItself},
    {"SendsSixtyFourMegabytesInOnePacket", "64 MB in one packet",
     [](int) -> std::string {
         return "wait packet key KORUInfo\nnotify fill-string phone-name 67108864\nnotify int "
                "change-mode 1\n";
     },
     &HostileService::takeHugeName, Reported::kNothing, End::kItself},
    {"SendsGarbage", "garbage", garbage, &HostileService::waitForNote, Reported::kNothing, End::kItself},
    {"SendsGarbageInPackets", "garbage in whole packets", garbageInPackets,
     &HostileService::takeEventBehindGarbage, Reported::kNothing, End::kItself},
    {"SendsHalfAHeaderAndFallsSilent", "half a header, then silence",
     [](int) -> std::string { return "bytes 24 00 22 00\nflush\nnote hostile\n"; },
     &HostileService::waitForNote, Reported::kNothing, End::kItself},
    {"DiesAtARandomByte", "dies at a random byte", deathAtAByte, &HostileService::countWholePackets,
     Reported::kConnectionLost, End::kItself},
    {"RefusesToDie", "refuses to die",
     [](int) -> std::string { return "on-stop ignore\nwait packet key KORUInfo\nnote hostile\n"; },
     &HostileService::waitForNote, Reported::kNothing, End::kLibrary},
    {"StartsChildrenThatRefuseToDie", "starts children that refuse to die",
     [](int) -> std::string {
         return "on-stop ignore\nchildren 3\nwait packet key KORUInfo\nnote hostile\n";
     },
     &HostileService::waitForNote, Reported::kNothing, End::kLibrary},
};

// One round each: what the log and the heap keep of these is of another size in each round.
class OneHostileRound : public stress::HostileRounds {};

TEST_F(OneHostileRound, TwentyThousandSendsThatNobodyReadsDoNotKeepUninit) {
    constexpr int kSends = 20000;
    startAndConfigure("stop-reading\nwait connection\nnote hostile\n");
    ASSERT_TRUE(standin.waitForNote("hostile"));
    const std::string account(255, 'a');
    for (int i = 0; i < kSends; ++i) {
        ASSERT_TRUE(api.setAccountID(handle, account.c_str()));
    }
    release(Reported::kNothing, End::kLibrary);
    EXPECT_NE(support::logText().find("bytes are unsent, a packet is dropped"), std::string::npos);
    support::tried("hostile service: sends that nobody reads", kSends, "sends");
}

TEST_F(OneHostileRound, ElevenMillionEntriesInOnePacketDoNotKeepUninit) {
    // Each entry: a key of three letters, the type of a byte, the byte.
    startAndConfigure("on-stop ignore\nwait packet key KORUInfo\nbytes 24 0022 0001 04000000\n"
                      "fill 67108864 3\nflush\nnote hostile\n");
    ASSERT_TRUE(standin.waitForNote("hostile"));
    release(Reported::kNothing, End::kLibrary);
    support::tried("hostile service: 11 million entries in one packet", 1);
}

TEST_P(HostileService, CostsTheHostNothingButTheSession) {
    const Hostility& row = GetParam();
    repeat(row.what, support::processRounds(2, 100), [&](int round) {
        startAndConfigure(row.scenario(round));
        ASSERT_NO_FATAL_FAILURE((this->*row.host)(round));
        release(row.reported, row.end);
    });
}

INSTANTIATE_TEST_SUITE_P(Every, HostileService, testing::ValuesIn(kHostilities),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace
