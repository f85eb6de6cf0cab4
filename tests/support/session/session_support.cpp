#include "support/session/session_support.h"
#include "oracle/entries.h"
#include "oracle/packets.h"

#include "log/write_log.h"
#include "support/wait.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <mutex>

namespace support {

namespace {

struct Calls {
    std::mutex mutex;
    std::vector<Host::Call> events;
    std::vector<Host::Call> errors;
    std::function<void(int, int)> eventHook;
    std::function<void(int, int)> errorHook;
};

Calls& calls() {
    static auto& all = *new Calls;
    return all;
}

void note(std::vector<Host::Call>& list, const std::function<void(int, int)>& hookPlace, int first,
          int second) {
    std::function<void(int, int)> hook;
    {
        const std::lock_guard guard(calls().mutex);
        list.emplace_back(first, second);
        hook = hookPlace;
    }
    if (hook) {
        hook(first, second);
    }
}

std::vector<Host::Call> copyOf(const std::vector<Host::Call>& list) {
    const std::lock_guard guard(calls().mutex);
    return list;
}

} // namespace

Host::Host() {
    const std::lock_guard guard(calls().mutex);
    calls().events.clear();
    calls().errors.clear();
    calls().eventHook = nullptr;
    calls().errorHook = nullptr;
}

Host::~Host() {
    const std::lock_guard guard(calls().mutex);
    calls().eventHook = nullptr;
    calls().errorHook = nullptr;
}

AudioServiceParam Host::record() {
    AudioServiceParam param = {};
    param.onEvent = onEvent;
    param.onError = onError;
    param.context = &calls();
    setText(param.accountID, "the account");
    setText(param.deviceID, "the device");
    setText(param.sn, "the serial number");
    setText(param.model, "the model");
    setText(param.bluetoothMac, "the mac");
    setText(param.pcName, "the name");
    return param;
}

void Host::onEvent(int event, int value) {
    note(calls().events, calls().eventHook, event, value);
}

void Host::onError(int code, int value) {
    note(calls().errors, calls().errorHook, code, value);
}

std::vector<Host::Call> Host::events() {
    return copyOf(calls().events);
}

std::vector<Host::Call> Host::errors() {
    return copyOf(calls().errors);
}

testing::AssertionResult Host::waitForEvents(std::size_t count) {
    return reaches(count, "events", [] { return events().size(); });
}

testing::AssertionResult Host::waitForErrors(std::size_t count) {
    return reaches(count, "errors", [] { return errors().size(); });
}

void Host::whenEvent(std::function<void(int, int)> hook) {
    const std::lock_guard guard(calls().mutex);
    calls().eventHook = std::move(hook);
}

void Host::whenError(std::function<void(int, int)> hook) {
    const std::lock_guard guard(calls().mutex);
    calls().errorHook = std::move(hook);
}

std::atomic<std::uint16_t>& seriesFrom(std::uint16_t next) {
    static std::atomic<std::uint16_t> series;
    series = static_cast<std::uint16_t>(next - 1);
    return series;
}

void setText(char (&field)[SONVIA_TEXT_SIZE], const std::string& text) {
    std::memset(field, 0, sizeof field);
    std::memcpy(field, text.data(), std::min(text.size(), sizeof field));
}

namespace {

/// None of a payload that is not well formed to its end.
std::vector<oracle::Entry> wholeEntries(const oracle::Bytes& payload) {
    const oracle::Decoded decoded = oracle::decode(payload);
    return decoded.fault ? std::vector<oracle::Entry>() : decoded.entries;
}

} // namespace

std::vector<std::pair<std::string, std::string>> koruInfoOf(const oracle::Bytes& payload) {
    std::vector<std::pair<std::string, std::string>> texts;
    const std::vector<oracle::Entry> outer = wholeEntries(payload);
    if (outer.size() != 1 || outer[0].key != "KORUInfo" || outer[0].type != oracle::kTypeNested) {
        return texts;
    }
    for (const oracle::Entry& entry : wholeEntries(outer[0].value)) {
        texts.emplace_back(entry.key,
                           entry.type == oracle::kTypeText ? oracle::text(entry.value) : "<no text>");
    }
    return texts;
}

std::string accountOf(const oracle::Bytes& payload) {
    const std::vector<oracle::Entry> entries = wholeEntries(payload);
    if (entries.size() != 1 || entries[0].key != "accountID" || entries[0].type != oracle::kTypeText) {
        return "<none>";
    }
    return oracle::text(entries[0].value);
}

oracle::Bytes notify(const oracle::Bytes& payload) {
    return oracle::encodePacket(34, 0, payload);
}

void DirectSession::receive(const oracle::Bytes& payload, std::uint16_t cmdType) {
    session.onRead(chainOf(oracle::encodePacket(cmdType, 0, payload)), 0);
}

bool LoggingSocket::write(const OBufList& list) {
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]written", "LoggingSocket::write", __LINE__);
    return RecordingSocket::write(list);
}

PipeSession::PipeSession() {
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN); // a write to a pipe whose peer has gone must fail, not end the program
#endif
    OStreamPipe::pipeNamePrefix = uniquePipePrefix();
    fullName = OStreamPipe::pipeNamePrefix + "QuPCAudio";
}

PipeSession::~PipeSession() {
    if (mThread.joinable()) {
        loop->stop();
        mThread.join();
    } else if (session->handle() != nullptr) {
        loop->run([this] { loop->stop(); });
    }
    session->close();
    session = nullptr;
    peer = nullptr;
}

PipePeer& PipeSession::listen(PipePeer::Reads reads) {
    peer = std::make_unique<PipePeer>(fullName, reads);
    return *peer;
}

void PipeSession::runLoop() {
    std::promise<void> entered;
    mThread = std::thread([this, &entered] { loop->run([&entered] { entered.set_value(); }); });
    entered.get_future().wait();
}

std::shared_ptr<std::promise<void>> PipeSession::holdLoop() {
    auto released = std::make_shared<std::promise<void>>();
    loop->post([held = released->get_future().share()] { held.wait(); });
    return released;
}

std::vector<oracle::Packet> PipeSession::waitForPackets(std::size_t count) {
    std::vector<oracle::Packet> packets;
    EXPECT_TRUE(reaches(count, "packets", [&] {
        oracle::Bytes bytes = oracle::bytesOf(peer->received());
        packets = oracle::takePackets(bytes);
        return packets.size();
    }));
    return packets;
}

testing::AssertionResult PipeSession::waitForStreamErrors(std::size_t count) const {
    return reaches(count, "stream errors", [this] { return session->streamErrors.load(); });
}

testing::AssertionResult PipeSession::waitForConnects(std::size_t count) const {
    return reaches(count, "completed connects", [this] { return session->connects.load(); });
}

void PipeSession::Observed::onError(std::int32_t code) {
    QuPCAudioMessage::onError(code);
    ++streamErrors;
}

void PipeSession::Observed::onConnect(uv_connect_t* req, std::int32_t status) {
    QuPCAudioMessage::onConnect(req, status);
    ++connects;
}

bool PipeSession::Observed::write(const OBufList& list) {
    const bool accepted = QuPCAudioMessage::write(list);
    refusedWrites += accepted ? 0 : 1;
    return accepted;
}

} // namespace support
