#include "oracle/session.h"

#include "oracle/packets.h"

#include <algorithm>
#include <initializer_list>

namespace oracle {

namespace {

constexpr std::size_t kTextSize = 256;

constexpr int kConnectionError = -2;
constexpr int kStreamError = -3;
constexpr int kBufferingStarted = 200001;
constexpr int kBufferingEnded = 200002;
constexpr int kFirstAudio = 200003;
constexpr int kModeChanged = 200006;
constexpr std::uint32_t kStopService = 200004;
constexpr std::uint32_t kExitProjection = 200005;

} // namespace

bool Session::init(const std::string& texts) {
    mHasHost = true;
    mTexts = texts;
    mAccount = texts;
    if (mConnected) {
        sendIdentity();
    } else {
        mConnecting = !mEnded;
    }
    return !mEnded;
}

void Session::connected(int status) {
    mConnecting = false;
    if (status != 0) {
        mConnected = false;
        report('X', kConnectionError, 0);
        return;
    }
    sendIdentity();
    mConnected = !mEnded;
    if (mStopWaits) {
        mStopWaits = false;
        sendStop();
    }
}

void Session::bytesArrive(const Bytes& bytes) {
    append(mArrived, bytes);
    for (const Packet& packet : takePackets(mArrived)) {
        if (packet.command == kNotify) {
            notified(packet.payload);
        }
    }
}

// In the order of the keys.
void Session::notified(const Bytes& payload) {
    const Entries entries = entriesOf(payload);
    if (entries.contains("buffering-end")) {
        report('E', kBufferingEnded, 0);
    }
    if (entries.contains("buffering-start")) {
        report('E', kBufferingStarted, 0);
    }
    if (entries.contains("change-mode")) {
        report('E', kModeChanged, intOf(entries, "change-mode").value_or(0));
    }
    if (entries.contains("first-audiopcm")) {
        report('E', kFirstAudio, 0);
    }
    if (entries.contains("phone-name")) {
        mPhoneName = textOf(entries, "phone-name").value_or(mPhoneName);
    }
    if (entries.contains("player-state")) {
        state = static_cast<std::uint32_t>(intOf(entries, "player-state").value_or(0));
    }
}

void Session::streamFails(int code) {
    // The codes of a connection that was reset and of one that has ended, on every system that this runs on.
    const std::initializer_list<int> lost = {-104, -4077, -4095};
    if (mConnected) {
        const bool isLost = std::find(lost.begin(), lost.end(), code) != lost.end();
        report('X', isLost ? kConnectionError : kStreamError, code);
    }
}

bool Session::setAccountID(const std::string& text) {
    if (text.empty() || text.size() >= kTextSize) {
        return false;
    }
    mAccount.replace(0, text.size(), text);
    send(mSequence++, encodeText("accountID", mAccount));
    return true;
}

void Session::exitProjection() {
    send(mExitSequence++, encodeInt("exitAudioProjection", kExitProjection));
}

void Session::end() {
    mEnded = true;
    mConnected = false;
    if (mConnecting) { // a service that accepts the connection must receive it
        mConnecting = false;
        mStopWaits = true;
    } else {
        sendStop();
    }
}

void Session::sendStop() {
    append(sent, encodePacket(kStop, mStopSequence++, encodeInt("StopSonviaAudioService", kStopService)));
}

// A name is the host's as a text of C: up to its first NUL.
std::string Session::sourceName() const {
    const std::string name = mPhoneName.substr(0, mPhoneName.find('\0'));
    return name.empty() ? "phone" : name;
}

void Session::report(char callback, int code, int value) {
    if (!mHasHost) {
        return;
    }
    calls.push_back({callback, code, value, state, sourceName()});
    if (callback == 'E' && code == kModeChanged) {
        setAccountID(accountFor(value));
    }
}

void Session::send(std::uint16_t sequence, const Bytes& payload) {
    append(sent, encodePacket(kNotify, sequence, payload));
}

void Session::sendIdentity() {
    Bytes inner = encodeText("accountID", mAccount);
    for (const char* key : {"bluetoothMac", "deviceID", "model", "sn", "pcName"}) {
        append(inner, encodeText(key, mTexts));
    }
    send(mSequence++, encodeNested("KORUInfo", inner));
}

} // namespace oracle
