#pragma once

#include <cstdint>

/// The one state of a session's connection to the service.
enum class Connection : std::uint8_t {
    kIdle,       ///< no connect was asked for yet
    kConnecting, ///< the one connect is under way
    kConnected,
    kFailed, ///< the last connect failed: the next record tries again
    kLost,   ///< was connected and has ended; records are still sent, since nothing connects again
    kEnding, ///< the host releases the session: stream errors are silent and no record is accepted
    kGone,   ///< nobody is left to talk to: what still arrives is dropped
};

enum class ConnectionEvent : std::uint8_t {
    kConnectBegun,
    kConnectSucceeded,
    kConnectFailed,
    kStreamEnded,
    kSessionEnds,
    kServiceGone,
};

/// The whole table of states; docs/threads.md shows it with what is done in each row. A row that it lacks leaves the state
/// as it is.
constexpr Connection after(Connection from, ConnectionEvent event) {
    if (event == ConnectionEvent::kServiceGone) {
        return Connection::kGone;
    }
    if (from == Connection::kEnding || from == Connection::kGone) { // for good
        return from;
    }
    switch (event) {
    case ConnectionEvent::kConnectBegun:
        return Connection::kConnecting;
    case ConnectionEvent::kConnectSucceeded:
        return Connection::kConnected;
    case ConnectionEvent::kConnectFailed:
        return Connection::kFailed;
    case ConnectionEvent::kStreamEnded:
        return from == Connection::kConnected ? Connection::kLost : from;
    case ConnectionEvent::kSessionEnds:
    case ConnectionEvent::kServiceGone:
        break;
    }
    return Connection::kEnding;
}
