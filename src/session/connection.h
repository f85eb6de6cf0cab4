#pragma once

#include <cstdint>

/// The one state of a session's connection to the service.
enum class Connection : std::uint8_t {
    Idle,       ///< no connect has been requested
    Connecting, ///< the one connect is under way
    Connected,
    Failed, ///< the last connect failed; the next record starts another
    Lost,   ///< the connection has ended; records are still sent, since nothing reconnects
    Ending, ///< the host releases the session: stream errors are not reported and no record is accepted
    Gone,   ///< the service process has ended: what still arrives is dropped
};

enum class ConnectionEvent : std::uint8_t {
    ConnectBegun,
    ConnectSucceeded,
    ConnectFailed,
    StreamEnded,
    SessionEnds,
    ServiceGone,
};

/// The transition table; docs/threads.md shows it with the action of each row. Other pairs leave the state unchanged.
constexpr Connection after(Connection from, ConnectionEvent event) {
    if (event == ConnectionEvent::ServiceGone) {
        return Connection::Gone;
    }
    if (from == Connection::Ending || from == Connection::Gone) { // final
        return from;
    }
    switch (event) {
    case ConnectionEvent::ConnectBegun:
        return Connection::Connecting;
    case ConnectionEvent::ConnectSucceeded:
        return Connection::Connected;
    case ConnectionEvent::ConnectFailed:
        return Connection::Failed;
    case ConnectionEvent::StreamEnded:
        return from == Connection::Connected ? Connection::Lost : from;
    case ConnectionEvent::SessionEnds:
    case ConnectionEvent::ServiceGone:
        break;
    }
    return Connection::Ending;
}
