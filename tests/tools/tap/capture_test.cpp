#include "capture.h"

#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "oracle/entries.h"
#include "oracle/packets.h"

namespace tap {
namespace {

using standin::From;

/// A capture in a file of the running test, and what it reported.
class TapCapture : public testing::Test {
protected:
    TapCapture() { std::filesystem::remove(path); }

    Capture open(std::uint64_t limit = Capture::kDefaultLimit) {
        return {path, limit, [this](const std::string& what) { reported += what + ";"; }};
    }

    /// The lines without what differs from run to run.
    std::vector<std::string> lines() const {
        std::vector<std::string> found;
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);) {
            found.push_back(line.substr(0, line.rfind(",\"at\":")));
        }
        return found;
    }

    static std::string bytesOf(From from, const oracle::Bytes& bytes) {
        const std::string line = standin::bytesLine(bytes, from).finish();
        return line.substr(0, line.size() - 2);
    }

    const std::filesystem::path path = testing::UnitTest::GetInstance()->current_test_info()->name();
    std::string reported;
};

oracle::Bytes account(const std::string& name) {
    return oracle::encodePacket(oracle::kNotify, 7, oracle::encodeText("accountID", name));
}

TEST_F(TapCapture, TextsAreMaskedWhereverTheBytesAreCut) {
    const oracle::Bytes sent = oracle::join({account("secret"), account("another")});
    for (std::size_t cut = 0; cut <= sent.size(); ++cut) {
        std::filesystem::remove(path);
        {
            Capture capture = open();
            capture.carried(From::Host, oracle::part(sent, 0, cut));
            capture.carried(From::Host, oracle::part(sent, cut, sent.size() - cut));
        }
        const std::vector<std::string> written = lines();
        ASSERT_EQ(written.size(), 4U) << cut;
        EXPECT_EQ(written[2], R"({"event":"packet","from":"host","command":34,"seq":7,"size":21,)"
                              R"("entries":[{"key":"accountID","type":20,"value":"xxxxxx"}])");
        EXPECT_NE(written[3].find(R"("value":"xxxxxxx")"), std::string::npos) << written[3];
    }
}

TEST_F(TapCapture, OfAPacketThatBreaksOffOnlyTheHeaderIsKept) {
    const oracle::Bytes whole = account("secret");
    {
        Capture capture = open();
        capture.carried(From::Service, oracle::part(whole, 0, 24));
        capture.disconnected(-4095);
        capture.disconnected(0);
    }
    ASSERT_EQ(lines().size(), 4U);
    EXPECT_EQ(lines()[2], bytesOf(From::Service, oracle::join({oracle::part(whole, 0, oracle::kHeaderSize),
                                                               oracle::Bytes(15, 'x')})));
    EXPECT_EQ(lines()[3], R"({"event":"disconnect","code":-4095,"unfinished":24)");
}

TEST_F(TapCapture, PacketThatIsTooLongToWaitForIsMaskedAndTheNextOneIsCutRight) {
    constexpr std::uint32_t kSize = Capture::kMaxPacket + 1;
    const oracle::Bytes header = oracle::encodeHeader(oracle::kMagic, oracle::kNotify, 1, kSize);
    {
        Capture capture = open();
        capture.carried(From::Service, header);
        capture.carried(From::Service, oracle::Bytes(kSize - 3, 's'));
        capture.carried(From::Service, oracle::join({oracle::Bytes(3, 's'), account("secret")}));
    }
    const std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 6U);
    EXPECT_EQ(written[2], bytesOf(From::Service, header));
    EXPECT_EQ(written[3], bytesOf(From::Service, oracle::Bytes(kSize - 3, 'x')));
    EXPECT_EQ(written[4], bytesOf(From::Service, oracle::Bytes(3, 'x')));
    EXPECT_NE(written[5].find(R"("from":"service","command":34,"seq":7)"), std::string::npos) << written[5];
}

TEST_F(TapCapture, FileStopsAtItsLimitAndSaysSo) {
    constexpr std::uint64_t kLimit = 1000;
    for (int connection = 0; connection < 2; ++connection) {
        Capture capture = open(kLimit);
        for (int count = 0; count < 100; ++count) {
            capture.carried(From::Host, account("secret"));
        }
        capture.disconnected(0);
        EXPECT_EQ(lines().back(), R"({"event":"limit")");
        EXPECT_LE(std::filesystem::file_size(path), kLimit);
    }
    EXPECT_EQ(reported, "");
}

TEST_F(TapCapture, SeveralConnectionsShareAFile) {
    open().disconnected(0);
    open().disconnected(0);
    EXPECT_EQ(lines().size(), 6U);
}

TEST_F(TapCapture, FileThatCannotBeOpenedIsReportedOnceAndHarmsNothing) {
    Capture capture("no such folder/file", Capture::kDefaultLimit,
                    [this](const std::string& what) { reported += what + ";"; });
    capture.carried(From::Host, account("secret"));
    capture.refused(-1);
    capture.disconnected(0);
    EXPECT_EQ(reported, "cannot be opened;");
}

} // namespace
} // namespace tap
