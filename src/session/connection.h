#pragma once

#include <cstdint>

/// The one state of a session's connection to the service.
enum class Connection : std::uint8_t {
    Idle,       ///< no connect was asked for yet
    Connecting, ///< the one connect is under way
    Connected,
    Failed, ///< the last connect failed: the next record tries again
    Lost,   ///< was connected and has ended; records are still sent, since nothing connects again
    Ending, ///< the host releases the session: stream errors are silent and no record is accepted
    Gone,   ///< nobody is left to talk to: what still arrives is dropped
};

enum class ConnectionEvent : std::uint8_t {
    ConnectBegun,
    ConnectSucceeded,
    ConnectFailed,
    StreamEnded,
    SessionEnds,
    ServiceGone,
};

/// The whole table of states; docs/threads.md shows it with what is done in each row. A row that it lacks leaves the state
/// as it is.
constexpr Connection after(Connection from, ConnectionEvent event) {
    if (event == ConnectionEvent::ServiceGone) {
        return Connection::Gone;
    }
    if (from == Connection::Ending || from == Connection::Gone) { // for good
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
