// Cutting received bytes into packets, next to a buffer that is appended to and cut, in one run whose repetitions take turns.
// Every result is checked. Ends with 1 when a bound is missed and with 2 when a result is wrong.

#include "streams.h"
#include "support/results.h"

#include "protocol/ctrl_protocol.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

/// Processor time, which other programs on the machine do not lengthen.
constexpr const char* kTime = "cpu";
constexpr std::size_t kReadSize = 65536;
constexpr std::size_t kPacketSize = 60;
constexpr std::size_t kPackets = 16384; // 15 reads of 64 KB exactly
constexpr std::size_t kLargeSize = std::size_t{16} << 20;

class Counter final : public CtrlProtocol, public Receiver {
public:
    void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                  std::uint32_t length) override {
        delivered.add(header->cmdType, header->seq, payload, length);
    }

    void onPacket(std::uint16_t command, std::uint16_t sequence, const std::uint8_t* payload,
                  std::uint32_t size) override {
        delivered.add(command, sequence, payload, size);
    }

    Delivered delivered;
};

/// A stream as it arrives: reads of at most `size` bytes, each at the start of a block of 64 KB.
class Reads {
public:
    Reads(const Stream& stream, std::size_t size) {
        for (std::size_t at = 0; at < stream.size(); at += size) {
            OBufView view;
            view.reset(kReadSize);
            const std::size_t count = std::min(size, stream.size() - at);
            std::memcpy(view.data(), stream.data() + at, count);
            view.setLength(count);
            mViews.push_back(std::move(view));
        }
    }

    const std::vector<OBufView>& views() const { return mViews; }

private:
    std::vector<OBufView> mViews;
};

/// As Reads, for reads so short that blocks of their own would not fit into the cache: slices of shared ones.
class ShortReads {
public:
    ShortReads(const Stream& stream, std::size_t size) {
        OBufView block = OBufView::make(stream.data(), stream.size());
        for (std::size_t at = 0; at < stream.size(); at += size) {
            OBufView view;
            block.slice(view, at, std::min(size, stream.size() - at));
            mViews.push_back(std::move(view));
        }
    }

    const std::vector<OBufView>& views() const { return mViews; }

private:
    std::vector<OBufView> mViews;
};

void finish(benchmark::State& state, const Delivered& delivered, const Delivered& expectedOnce) {
    const auto rounds = static_cast<std::uint64_t>(state.iterations());
    const Delivered expected = {expectedOnce.packets * rounds + planted(), expectedOnce.bytes * rounds,
                                expectedOnce.sum * rounds};
    if (!(delivered == expected)) {
        state.SkipWithError("other packets than were sent");
    }
    state.counters["cpu_ns_per_packet"] =
        benchmark::Counter(static_cast<double>(delivered.packets) / 1e9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void cutByUs(benchmark::State& state, const std::vector<OBufView>& reads, const Delivered& expected) {
    Counter counter;
    for (auto _ : state) {
        for (const OBufView& read : reads) {
            counter.DepackPacket(OBufList(1, read));
        }
    }
    finish(state, counter.delivered, expected);
}

void cutFromAppended(benchmark::State& state, const std::vector<OBufView>& reads, const Delivered& expected) {
    Counter counter;
    AppendedBuffer buffer(counter);
    for (auto _ : state) {
        for (const OBufView& read : reads) {
            buffer.receive(read.data(), read.length);
        }
    }
    finish(state, counter.delivered, expected);
}

/// The lower bound for a packet of many reads: its bytes in one run, in memory that is allocated each time.
void copyOnce(benchmark::State& state, const std::vector<OBufView>& reads) {
    for (auto _ : state) {
        auto* whole = static_cast<std::uint8_t*>(std::malloc(kLargeSize));
        std::size_t at = 0;
        for (const OBufView& read : reads) {
            std::memcpy(whole + at, read.data(), read.length);
            at += read.length;
        }
        benchmark::DoNotOptimize(whole);
        benchmark::ClobberMemory();
        std::free(whole);
    }
}

struct Row {
    std::string name;
    std::vector<OBufView> reads;
    Delivered expected;
};

/// Kept until the end of the process: benchmarks hold references.
template <typename HowTheyArrive>
const Row& keep(std::string name, const Packets& packets, std::size_t readSize) {
    static std::vector<std::unique_ptr<Row>> rows;
    rows.push_back(std::make_unique<Row>(
        Row{std::move(name), HowTheyArrive(packets.stream, readSize).views(), packets.delivered}));
    return *rows.back();
}

void addOurCut(const Row& row) {
    benchmark::RegisterBenchmark((row.name + "/ours").c_str(), [&row](benchmark::State& state) {
        cutByUs(state, row.reads, row.expected);
    });
}

void addCuts(const Row& row) {
    addOurCut(row);
    benchmark::RegisterBenchmark((row.name + "/appended").c_str(), [&row](benchmark::State& state) {
        cutFromAppended(state, row.reads, row.expected);
    });
}

void registerAll() {
    addCuts(keep<Reads>("cut_60", packetsOf(kPackets, kPacketSize), kReadSize));
    addCuts(keep<ShortReads>("cut_60_in_7", packetsOf(1024, kPacketSize), 7));
    for (const std::size_t size : {std::size_t{1} << 16, std::size_t{1} << 20}) {
        addCuts(keep<ShortReads>("cut_" + std::to_string(size) + "_in_7", packetsOf(1, size), 7));
    }
    // For a plot that shows that the cost grows with the packet's size and no faster.
    for (const std::size_t size :
         {std::size_t{64}, std::size_t{512}, std::size_t{4096}, kReadSize / 2, kReadSize * 4}) {
        addOurCut(keep<Reads>("cut_by_size/" + std::to_string(size),
                              packetsOf((std::size_t{1} << 20) / size, size), kReadSize));
    }
    const Row& row = keep<Reads>("cut_16MB", packetsOf(1, kLargeSize), kReadSize);
    addCuts(row);
    benchmark::RegisterBenchmark("cut_16MB/memcpy",
                                 [&row](benchmark::State& state) { copyOnce(state, row.reads); });
}

std::vector<Target> targets() {
    return {
        {"cut 60-byte packets, 64 KB reads", "cut_60/ours", "cut_60/appended", kTime, 1.2, false},
        {"cut 60-byte packets, 7-byte reads", "cut_60_in_7/ours", "cut_60_in_7/appended", kTime, kNoBound,
         false},
        {"16 MB in 64 KB reads", "cut_16MB/ours", "cut_16MB/memcpy", kTime, 1.3, false},
        // Sixteen times the bytes: linear, and a quarter for what no longer fits into the caches.
        {"1 MB in 7-byte reads", "cut_1048576_in_7/ours", "cut_65536_in_7/ours", kTime, 16 * 1.25, false},
    };
}

} // namespace

int main(int argc, char** argv) {
    registerAll();
    return runInTurns(argc, argv, targets());
}
