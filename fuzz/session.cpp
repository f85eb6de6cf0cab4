// A whole session between a host and a peer that cannot be trusted. Byte 0 of an input says how many bytes of control
// follow (at most 31); the rest is the stream that arrives. Each byte of control is a step: some of the stream arrives,
// as it is or as the recipe of a whole notification, or the connection fails, or the host does something. What remains
// of the stream arrives at once in the end. A plain model of the session must agree on every callback (and on what the
// host gets inside it), on the state, on the source's name and on all that is sent.

#include "oracle/session.h"
#include "api/live_handles.h"
#include "oracle/packets.h"
#include "support/input.h"
#include "support/require.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using oracle::Bytes;

namespace {

/// A session without a pipe: it is read to as libuv reads to it, and what it writes is kept.
class OpenSession : public QuPCAudioMessage {
public:
    explicit OpenSession(std::shared_ptr<OUVLoop> loop) : QuPCAudioMessage(std::move(loop)) {
        mStream.data = static_cast<OBaseHandle*>(this);
    }

    bool connect(const std::string& /*name*/) override { return true; }

    bool readStart() override { return true; }

    bool write(const OBufList& list) override {
        for (const OBufView& view : list) {
            sent.insert(sent.end(), view.data(), view.data() + view.length);
        }
        return true;
    }

    /// In as many reads as the provided blocks make of it.
    void arrive(const Bytes& bytes, std::size_t blockSize) {
        for (std::size_t done = 0; done < bytes.size();) {
            uv_buf_t block = {};
            allocCb(reinterpret_cast<uv_handle_t*>(&mStream), blockSize, &block);
            const std::size_t count = std::min<std::size_t>(block.len, bytes.size() - done);
            std::memcpy(block.base, bytes.data() + done, count);
            done += count;
            readCb(&mStream, static_cast<ssize_t>(count), &block);
        }
    }

    void fail(int code) {
        uv_buf_t block = {};
        allocCb(reinterpret_cast<uv_handle_t*>(&mStream), 1, &block);
        readCb(&mStream, code, &block);
    }

    Bytes sent;

private:
    uv_stream_t mStream = {};
};

/// One entry as the stream's next bytes choose it: a key that counts mostly, the type that belongs to it often.
Bytes takeEntry(Input& stream) {
    constexpr const char* kKeys[] = {"player-state",  "phone-name",     "change-mode", "buffering-start",
                                     "buffering-end", "first-audiopcm", "phone-nam",   ""};
    const std::uint8_t choice = stream.takeByte();
    const std::string key = kKeys[choice % std::size(kKeys)];
    const std::uint8_t kind = choice / std::size(kKeys) % 4;
    const Bytes value = stream.take(4);
    if (kind == 0 && value.size() == 4) {
        return oracle::encodeInt(key, static_cast<std::uint32_t>(oracle::number(value, 0, 4)));
    }
    if (kind == 1) {
        return oracle::encodeText(key, oracle::text(value));
    }
    return oracle::encodeRaw(key, kind == 2 ? oracle::kTypeByte : stream.takeByte(), value);
}

Bytes takeNotification(Input& stream, std::size_t entries) {
    Bytes payload;
    for (std::size_t count = 0; count < entries; ++count) {
        oracle::append(payload, takeEntry(stream));
    }
    return oracle::encodePacket(oracle::kNotify, 0, payload);
}

/// Session and model, given the same input.
class Meeting {
public:
    Meeting();

    ~Meeting() {
        const HandleRelease release(liveHandles(), mHandle);
        sNow = nullptr;
    }

    Meeting(const Meeting&) = delete;
    Meeting& operator=(const Meeting&) = delete;

    void step(std::uint8_t control, Input& stream);
    void arrive(const Bytes& bytes, std::size_t blockSize);
    void compare();

private:
    static void onEvent(int event, int value);
    static void onError(int code, int value);
    void note(char callback, int code, int value);
    void hostActs(std::uint8_t choice);
    void fail(std::uint8_t choice);
    void setParam(const std::string& texts);
    void setAccountID(const std::string& text);

    static Meeting* sNow; ///< the callbacks are plain functions

    AudioServiceHandle* mHandle = nullptr;
    std::atomic<std::uint16_t> mStopSeries{0xFFFF};
    OpenSession* mSession = nullptr; ///< of mHandle
    oracle::Session mModel;
    std::vector<oracle::HostCall> mCalls;
};

Meeting* Meeting::sNow = nullptr;

Meeting::Meeting() {
    // Nothing of a session without a pipe stays in the loop, so one does for all of them.
    static const auto kLoop = std::make_shared<OUVLoop>();
    auto session = std::make_unique<OpenSession>(kLoop);
    mSession = session.get();
    auto one = std::make_unique<HandleEntry>();
    one->record = std::make_unique<AudioServiceHandle>();
    one->record->session = std::move(session);
    one->record->loopThread =
        std::make_unique<platform::Thread>(); // there is one already: setParam starts no other
    mHandle = liveHandles().add(std::move(one));
    sNow = this;
}

void Meeting::onEvent(int event, int value) {
    sNow->note('E', event, value);
    if (event == SONVIA_EVENT_MODE_CHANGED) {
        require(::setAccountID(sNow->mHandle, oracle::Session::accountFor(value).c_str()),
                "a callback may send");
    }
}

void Meeting::onError(int code, int value) {
    sNow->note('X', code, value);
}

void Meeting::note(char callback, int code, int value) {
    mCalls.push_back({callback, code, value, getState(mHandle), getSourceName(mHandle)});
}

void Meeting::setParam(const std::string& texts) {
    AudioServiceParam param = {};
    param.onEvent = onEvent;
    param.onError = onError;
    param.context = this;
    for (auto* field :
         {&param.accountID, &param.bluetoothMac, &param.deviceID, &param.model, &param.sn, &param.pcName}) {
        texts.copy(*field, sizeof *field - 1);
    }
    require(::setParam(mHandle, &param) == mModel.init(texts), "a record with both callbacks is taken");
    param.onError = nullptr;
    require(!::setParam(mHandle, &param), "a record without a callback is refused");
}

void Meeting::setAccountID(const std::string& text) {
    require(::setAccountID(mHandle, text.c_str()) == mModel.setAccountID(text), "the same ids are refused");
}

void Meeting::hostActs(std::uint8_t choice) {
    switch (choice % 8) {
    case 0:
        setParam("someone@example.com");
        break;
    case 1:
        setParam(std::string(SONVIA_TEXT_SIZE - 1, 'z'));
        break;
    case 2:
        setAccountID("abc");
        break;
    case 3:
        setAccountID(std::string(SONVIA_TEXT_SIZE - choice / 8U, 'q'));
        break;
    case 4:
        mSession->onConnect(nullptr, UV_ENOENT);
        mModel.connected(UV_ENOENT);
        break;
    case 5:
        mSession->stopService(mStopSeries);
        mModel.end();
        break;
    case 7:
        require(exitAudioProjection(mHandle), "the request is handed on");
        mModel.exitProjection();
        break;
    default:
        mSession->onConnect(nullptr, 0);
        mModel.connected(0);
        break;
    }
}

void Meeting::fail(std::uint8_t choice) {
    constexpr int kCodes[] = {UV_EOF, UV_ECONNRESET, UV_EPIPE, 0, UV_ENOBUFS};
    const int code = kCodes[choice % std::size(kCodes)];
    mSession->fail(code);
    mModel.streamFails(code);
}

void Meeting::arrive(const Bytes& bytes, std::size_t blockSize) {
    if (!bytes.empty()) {
        mSession->arrive(bytes, blockSize);
        mModel.bytesArrive(bytes);
    }
}

void Meeting::step(std::uint8_t control, Input& stream) {
    const auto choice = static_cast<std::uint8_t>(control / 8);
    switch (control % 8) {
    case 0:
        hostActs(choice);
        break;
    case 1:
        fail(choice);
        break;
    case 2: { // a block that the bytes fill
        const Bytes bytes = stream.take(choice);
        arrive(bytes, bytes.size());
        break;
    }
    case 3:
        arrive(stream.take(choice), 64UL * 1024);
        break;
    case 4:
    case 5:
        arrive(takeNotification(stream, 1 + choice % 4U), 1024);
        break;
    case 6:
        arrive(stream.take(choice * 8U), 1024);
        break;
    default: // less than a quarter of a block as the library makes them
        arrive(stream.take(choice * 512U), 64UL * 1024);
        break;
    }
}

void Meeting::compare() {
    require(mCalls == mModel.calls, "the host is called as the model calls it");
    require(getState(mHandle) == mModel.state, "the same state");
    require(getSourceName(mHandle) == mModel.sourceName(), "the same name");
    require(mSession->sent == mModel.sent, "the same is sent");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMaxControl = 32;
    Input stream(data, size);
    const Bytes controls = stream.take(stream.takeByte() % kMaxControl);
    Meeting meeting;
    for (const std::uint8_t control : controls) {
        meeting.step(control, stream);
        meeting.compare();
    }
    const Bytes rest = stream.rest();
    meeting.arrive(rest, rest.size());
    meeting.compare();
    return 0;
}
