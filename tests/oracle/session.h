#pragma once

#include "oracle/bytes.h"
#include "oracle/entries.h"

#include <cstdint>
#include <string>
#include <vector>

namespace oracle {

/// A call of one of the host's callbacks, with what the host could ask for at that moment.
struct HostCall {
    char callback = 0; ///< 'E': onEvent, 'X': onError
    int code = 0;
    int value = 0;
    std::uint32_t state = 0;
    std::string sourceName;

    friend bool operator==(const HostCall&, const HostCall&) = default;
};

/// What one session does with calls and with what arrives: its callbacks, its answers, what it sends. In the
/// callback of a change of mode this host sends an account id.
class Session {
public:
    /// The six identity texts, all of them the same here. They are taken in any case; false when the session has ended.
    bool init(const std::string& texts);
    void connected(int status);
    void bytesArrive(const Bytes& bytes);
    void streamFails(int code);
    bool setAccountID(const std::string& text);
    void exitProjection();
    void end();

    /// The account id that this host sends in a callback with `value`.
    static std::string accountFor(int value) { return "mode " + std::to_string(value); }

    std::string sourceName() const;

    std::vector<HostCall> calls;
    Bytes sent;
    std::uint32_t state = 4;

private:
    void notified(const Bytes& payload);
    void report(char callback, int code, int value);
    void send(std::uint16_t sequence, const Bytes& payload);
    void sendIdentity();
    void sendStop();

    bool mHasHost = false;
    bool mConnecting = false;
    bool mConnected = false;
    bool mEnded = false;
    bool mStopWaits = false; ///< for the connect under way
    std::string mAccount;
    std::string mTexts;
    std::string mPhoneName;
    std::uint16_t mSequence = 0;
    std::uint16_t mExitSequence = 1; ///< the exported functions count their own packets
    std::uint16_t mStopSequence = 0;
    Bytes mArrived;
};

} // namespace oracle
