// What one connection carries, as a capture of docs/tools.md in a file of limited size.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>

#include "oracle/bytes.h"
#include "record.h"

namespace tap {

/// Texts are masked always: a capture is made to be passed on. Memory is bounded by kMaxPacket for each side.
///
/// Thread: any. Blocks: for the write to the file, never for another process or thread of the host.
/// On failure: reported once; from then on nothing is written and the host goes on as if there were no capture.
class Capture {
public:
    using Report = std::function<void(const std::string& what)>;

    static constexpr std::uint64_t kDefaultLimit = 16U << 20U;
    /// A packet that announces more is kept as bytes, all of them masked but the header.
    static constexpr std::uint32_t kMaxPacket = 1U << 20U;

    /// Appends to the file, which several connections of a host may share; it grows up to `limit` bytes.
    Capture(const std::filesystem::path& path, std::uint64_t limit, Report report);

    void carried(standin::From from, const oracle::Bytes& bytes);
    /// The system took nothing of what was carried last.
    void refused(int code);
    /// Only the first call counts.
    void disconnected(int code);

private:
    struct Side {
        standin::From from;
        oracle::Bytes
            waiting; ///< the start of a packet that is not whole: only then it is known what is text
        std::uint64_t rest = 0; ///< bytes still to come of a packet that is too long to wait for
    };

    void writePackets(Side& side);
    void writeRest(Side& side);
    void write(const standin::RecordLine& line);

    std::mutex mMutex;
    std::ofstream mFile;
    std::uint64_t mLeft = 0;
    Report mReport;
    bool mDisconnected = false;
    Side mHost{standin::From::Host, {}};
    Side mService{standin::From::Service, {}};
};

} // namespace tap
