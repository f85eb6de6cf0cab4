// Encoding and reading payloads next to msgpack and flatbuffers, in one run whose repetitions take turns. Every result is
// checked before a speed is shown. Ends with 1 when a bound is missed and with 2 when a result is wrong.

#include "identity.h"
#include "ours.h"
#include "peers.h"
#include "protocol/wire_format.h"
#include "support/results.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

/// Processor time, which other programs on the machine do not lengthen.
constexpr const char* kTime = "cpu";
constexpr std::string_view kNumberKey = "change-mode";
constexpr std::int32_t kNumber = 200004;

/// What the readers are fed with.
struct Inputs {
    AudioServiceParam record = sampleRecord();
    OBufList ourTexts = ours::encodeTexts(record);
    OBufList ourNumber = ours::encodeInt(kNumberKey, kNumber);
    std::string msgpackTexts = msgpack_peer::encodeTexts(record);
    std::string msgpackNumber{msgpack_peer::encodeIntAgain(kNumberKey, kNumber)};
    std::string flatTexts = flatbuffers_peer::encode(record);
};

const Inputs& inputs() {
    static const Inputs all;
    return all;
}

bool report(bool right, const char* what) {
    if (!right) {
        std::fprintf(stderr, "wrong result: %s\n", what);
    }
    return right;
}

bool resultsAreRight() {
    const Inputs& in = inputs();
    const IdentityTexts expected = textsOf(in.record);
    IdentityTexts texts;
    IdentityViews views;
    bool right = report(ours::readIdentity(ours::encodeIdentity(in.record), texts) && texts == expected,
                        "our identity");
    right &= report(ours::readTexts(in.ourTexts, texts) && texts == expected, "our texts");
    right &= report(ours::readViews(in.ourTexts, views) && textsOf(views) == expected, "our views");
    right &= report(ours::readInt(in.ourNumber, kNumberKey) == kNumber + static_cast<std::int32_t>(planted()),
                    "our number");
    const std::string large(100'000, 'a');
    right &=
        report(ours::readText(ours::encodeText(kNumberKey, large), kNumberKey) == large, "our long text");
    const msgpack_peer::Owned owned = msgpack_peer::encodeIdentity(in.record);
    right &= report(msgpack_peer::readIdentity({owned.bytes.get(), owned.size}, texts) && texts == expected,
                    "msgpack's identity");
    right &= report(msgpack_peer::readIdentity(msgpack_peer::encodeIdentityAgain(in.record), texts) &&
                        texts == expected,
                    "msgpack's identity in a kept buffer");
    right &= report(msgpack_peer::readTexts(in.msgpackTexts, texts) && texts == expected, "msgpack's texts");
    right &= report(msgpack_peer::readInt(in.msgpackNumber, kNumberKey) == kNumber, "msgpack's number");
    right &= report(flatbuffers_peer::readViews(in.flatTexts, views) && textsOf(views) == expected,
                    "flatbuffers' views");
    return right;
}

template <typename Operation>
void add(const char* name, Operation operation) {
    benchmark::RegisterBenchmark(name, [operation](benchmark::State& state) {
        for (auto _ : state) {
            operation();
            benchmark::ClobberMemory();
        }
    });
}

void registerAll() {
    const Inputs& in = inputs();
    using benchmark::DoNotOptimize;
    add("encode_identity/ours", [&] { DoNotOptimize(ours::encodeIdentity(in.record)); });
    add("encode_identity/msgpack", [&] { DoNotOptimize(msgpack_peer::encodeIdentity(in.record)); });
    add("encode_identity/msgpack_kept", [&] { DoNotOptimize(msgpack_peer::encodeIdentityAgain(in.record)); });
    add("encode_identity/flatbuffers", [&] { DoNotOptimize(flatbuffers_peer::encode(in.record)); });
    add("read_texts/ours", [&] {
        IdentityTexts texts;
        DoNotOptimize(ours::readTexts(in.ourTexts, texts));
        DoNotOptimize(texts);
    });
    add("read_texts/msgpack", [&] {
        IdentityTexts texts;
        DoNotOptimize(msgpack_peer::readTexts(in.msgpackTexts, texts));
        DoNotOptimize(texts);
    });
    add("read_views/ours", [&] {
        IdentityViews views;
        DoNotOptimize(ours::readViews(in.ourTexts, views));
        DoNotOptimize(views);
    });
    add("read_views/flatbuffers", [&] {
        IdentityViews views;
        DoNotOptimize(flatbuffers_peer::readViews(in.flatTexts, views));
        DoNotOptimize(views);
    });
    add("encode_int/ours", [&] { DoNotOptimize(ours::encodeInt(kNumberKey, kNumber)); });
    add("encode_int/msgpack", [&] { DoNotOptimize(msgpack_peer::encodeInt(kNumberKey, kNumber)); });
    add("encode_int/msgpack_kept", [&] { DoNotOptimize(msgpack_peer::encodeIntAgain(kNumberKey, kNumber)); });
    add("read_int/ours", [&] { DoNotOptimize(ours::readInt(in.ourNumber, kNumberKey)); });
    add("read_int/msgpack", [&] { DoNotOptimize(msgpack_peer::readInt(in.msgpackNumber, kNumberKey)); });
}

/// One text of each size, for a plot that shows that the cost grows with it and no faster.
void registerBySize() {
    static constexpr std::size_t kSizes[] = {64, 512, 4096, 32768, 262144};
    static constexpr std::string_view kKey = protocol::kKeyPhoneName;
    for (const std::size_t size : kSizes) {
        const std::string of = "_by_size/" + std::to_string(size);
        const std::string text(size, 'a');
        add(("encode" + of + "/ours").c_str(),
            [text] { benchmark::DoNotOptimize(ours::encodeText(kKey, text)); });
        add(("read" + of + "/ours").c_str(), [payload = ours::encodeText(kKey, text)] {
            benchmark::DoNotOptimize(ours::readText(payload, kKey));
        });
        add(("copy" + of + "/string").c_str(), [text] { benchmark::DoNotOptimize(std::string(text)); });
    }
}

std::vector<Target> targets() {
    return {
        {"encode six nested texts", "encode_identity/ours", "encode_identity/msgpack_kept", kTime, 1.5,
         false},
        {"encode six nested texts, bytes owned", "encode_identity/ours", "encode_identity/msgpack", kTime,
         1.5, false},
        {"index, read six owned texts", "read_texts/ours", "read_texts/msgpack", kTime, 0.6, false},
        {"index, read six views", "read_views/ours", "read_views/flatbuffers", kTime, 1.2, false},
        {"encode one integer", "encode_int/ours", "encode_int/msgpack_kept", kTime, 4, false},
        {"encode one integer, bytes owned", "encode_int/ours", "encode_int/msgpack", kTime, 4, false},
        {"index, read one integer", "read_int/ours", "read_int/msgpack", kTime, 0.35, false},
    };
}

} // namespace

int main(int argc, char** argv) {
    if (!resultsAreRight()) {
        return 2;
    }
    registerAll();
    registerBySize();
    return runInTurns(argc, argv, targets());
}
