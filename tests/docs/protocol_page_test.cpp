// The worked bytes in docs/protocol.md are what the library sends and understands.

#include "protocol/command_names.h"
#include "protocol/key_value.h"
#include "session/qu_pc_audio_message.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOfHex(const std::string& text) {
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        bytes.push_back(static_cast<std::uint8_t>(std::strtoul(word.c_str(), nullptr, 16)));
    }
    return bytes;
}

/// Every ```hex block of the page, by the heading above it.
std::map<std::string, Bytes> workedBytes() {
    std::ifstream page(std::string(SONVIA_DOCS_DIR) + "/protocol.md");
    std::map<std::string, Bytes> blocks;
    std::string heading;
    std::string hex;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("### ", 0) == 0) {
            heading = line.substr(4);
        } else if (line == "```hex") {
            inside = true;
            hex.clear();
        } else if (line == "```" && inside) {
            inside = false;
            blocks[heading] = bytesOfHex(hex);
        } else if (inside) {
            hex += line + " ";
        }
    }
    return blocks;
}

/// A session whose packets stay here and which never opens a pipe.
class CapturedSession : public QuPCAudioMessage {
public:
    CapturedSession() : QuPCAudioMessage(std::make_shared<OUVLoop>()) {}

    bool connect(const std::string& /*name*/) override { return true; }

    bool write(const OBufList& list) override {
        sent.clear();
        for (const OBufView& view : list) {
            sent.insert(sent.end(), view.data(), view.data() + view.length);
        }
        return true;
    }

    Bytes sent;
};

AudioServiceParam paramWithTexts() {
    AudioServiceParam param = {};
    param.onEvent = [](int, int) {};
    param.onError = [](int, int) {};
    param.context = &param;
    std::strcpy(param.accountID, "a");
    std::strcpy(param.bluetoothMac, "b");
    std::strcpy(param.deviceID, "d");
    std::strcpy(param.model, "m");
    std::strcpy(param.sn, "s");
    std::strcpy(param.pcName, "p");
    return param;
}

} // namespace

TEST(ProtocolPage, EverySentPacketHasTheBytesOfThePage) {
    std::map<std::string, Bytes> page = workedBytes();
    CapturedSession session;

    session.sendCommand(kCommandNotify, 0, {});
    EXPECT_EQ(session.sent, page["Notify with an empty payload, sequence number 0"]);
    std::atomic<std::uint16_t> series{1};
    session.endProjection(series);
    EXPECT_EQ(session.sent, page["End of the projection, sequence number 2"]);

    ASSERT_TRUE(session.init(paramWithTexts()));
    session._setKORUInfoNotify();
    EXPECT_EQ(
        session.sent,
        page[R"(Device information with the texts "a", "b", "d", "m", "s" and "p", sequence number 0)"]);
    ASSERT_TRUE(session.setAccountID("abc"));
    EXPECT_EQ(session.sent, page[R"(Account id "abc", sequence number 1)"]);

    CapturedSession ending;
    series = 0;
    ending.stopService(series);
    EXPECT_EQ(ending.sent, page["Stop, sequence number 1"]);
}

TEST(ProtocolPage, AReceivedPacketDoesWhatThePageSays) {
    const Bytes packet = workedBytes()[R"(From the service: state 2 and the name "Handset A")"];
    ASSERT_FALSE(packet.empty());
    CapturedSession session;
    session.onRead(OBufList(1, OBufView::make(packet.data(), packet.size())), 0);
    EXPECT_EQ(session.getPlayerState(), 2U);
    EXPECT_STREQ(session.getPhoneName(), "Handset A");
}
