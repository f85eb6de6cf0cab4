#include "encode.h"

#include <istream>
#include <iterator>
#include <ostream>

#include <fmt/format.h>

#include "capture_line.h"
#include "hex.h"
#include "oracle/packets.h"
#include "scenario.h"

namespace inspect {

namespace {

/// The chunks, one after another, in the form that was chosen.
class ChunkWriter {
public:
    ChunkWriter(std::ostream& out, Form form) : mOut(out), mForm(form) {}

    /// Before the first chunk.
    void start(bool masked) {
        if (mForm == Form::Capture) {
            mOut << captureHead(masked);
        }
    }

    void write(const Chunk& chunk) {
        if (mForm == Form::Capture) {
            mOut << captureLine(chunk);
        } else if (mForm == Form::Raw) {
            mOut << oracle::text(chunk.bytes);
        } else if (chunk.mark.empty()) {
            mOut << (chunk.from == Side::Host ? "> " : "< ") << hexOf(chunk.bytes, " ") << '\n';
        }
    }

private:
    std::ostream& mOut;
    Form mForm;
};

/// What the service would send if it played the steps. Time passes as the scenario waits for it; other waits take none.
class ScenarioEncoder {
public:
    ScenarioEncoder(std::string name, ChunkWriter& writer) : mName(std::move(name)), mWriter(writer) {}

    void encode(const standin::Step& step) {
        mChunk.line = step.line;
        std::visit([this](const auto& action) { perform(action); }, step.action);
    }

private:
    void perform(const standin::WaitTime& wait) { mChunk.at += wait.milliseconds.literal * 1000; }

    void perform(const standin::SendPacket& step) {
        send(encodePacket(step.packet, ++mSequence, {})); // counted as the player counts
    }

    void perform(const standin::SendBytes& step) { send(step.bytes); }

    void perform(const standin::SendFill& step) {
        send(oracle::Bytes(static_cast<std::size_t>(step.count.literal), step.byte));
    }

    void perform(const standin::RepeatBegin& /*step*/) {
        throw InputError(
            fmt::format("{}:{}: expected single packets, found a repeat block", mName, mChunk.line));
    }

    /// What else there is to do is no bytes.
    template <class Other>
    void perform(const Other& /*step*/) {}

    void send(oracle::Bytes bytes) {
        mChunk.bytes = std::move(bytes);
        mWriter.write(mChunk);
    }

    std::string mName;
    ChunkWriter& mWriter;
    Chunk mChunk;
    std::uint16_t mSequence = 0;
};

void encodeScenario(std::istream& in, const std::string& name, ChunkWriter& writer) {
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const standin::Scenario scenario = standin::parseScenario(text);
    if (scenario.mistake) {
        throw InputError(scenario.mistake->describe(name));
    }
    writer.start(false);
    ScenarioEncoder encoder(name, writer);
    for (const standin::Step& step : scenario.steps) {
        encoder.encode(step);
    }
}

} // namespace

void encode(std::istream& in, const std::string& name, std::ostream& out, Form form) {
    ChunkWriter writer(out, form);
    if (in.peek() != '{') {
        encodeScenario(in, name, writer);
        return;
    }
    CaptureReader::Options options;
    options.form = Form::Capture;
    CaptureReader reader(in, name, options);
    Chunk chunk;
    bool some = reader.next(chunk); // with it comes whether texts are masked
    writer.start(reader.masked());
    for (; some; some = reader.next(chunk)) {
        writer.write(chunk);
    }
}

} // namespace inspect
