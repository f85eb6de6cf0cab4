// The number in the bracket of a log line leads to the place in the source that wrote it.

#include "oracle/packets.h"
#include "protocol/safety_data_deal.h"
#include "support/log_capture.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace support;
using oracle::Bytes;

namespace {

using Block = std::array<std::uint8_t, kAesBlockSize>;

std::shared_ptr<SafetyDataDeal> context() {
    static constexpr Block block = {1, 2, 3};
    return SafetyDataDeal::create(block, block, block);
}

/// That line of a file below src/; empty when the file has no such line.
std::string sourceLine(const std::string& file, int number) {
    std::ifstream source(std::string(SONVIA_SOURCE_DIR) + "/" + file);
    std::string text;
    for (int at = 0; at < number; ++at) {
        if (!std::getline(source, text)) {
            return {};
        }
    }
    return text;
}

void expectToNameItsPlace(const LogLine& line) {
    const bool framing = line.function.rfind("CtrlProtocol::", 0) == 0;
    const char* file = framing ? "protocol/ctrl_protocol.cpp" : "protocol/safety_data_deal.cpp";
    EXPECT_NE(sourceLine(file, line.line).find("__LINE__"), std::string::npos) << line;
}

} // namespace

TEST(SourceLine, EveryLineAboutABadMessageNamesItsPlace) {
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(context());
    LogCapture log;
    receiver.feed(oracle::encodePacket(34, 1, {1, 2}));       // too short
    receiver.feed(oracle::encodePacket(34, 2, {0, 9, 1, 0})); // a header larger than the message
    receiver.feed(oracle::encodePacket(34, 3, {0, 6, 1, 0x20, 0, 0, 0, 0, 7})); // another integrity value
    const std::vector<LogLine> lines = log.lines();
    EXPECT_EQ(lines.size(), 7U); // one, one and two from the message, and one each from its packet
    for (const LogLine& line : lines) {
        expectToNameItsPlace(line);
    }
}

TEST(SourceLine, EveryLineAboutAPayloadThatCannotBeProtectedNamesItsPlace) {
    const auto protection = context();
    std::uint8_t* message = nullptr;
    std::size_t size = 0;
    LogCapture log;
    protection->encryptData(nullptr, 12, &message, &size);
    protection->mEncryptOn = protection->mBlockPad = false;
    protection->encryptData(nullptr, 0, &message, &size); // no data to take the integrity value of
    std::free(message);
    const std::vector<LogLine> lines = log.lines();
    EXPECT_EQ(lines.size(), 2U);
    for (const LogLine& line : lines) {
        expectToNameItsPlace(line);
    }
}
