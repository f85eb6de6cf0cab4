// Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.
#ifndef SONVIA_PC_AUDIO_NAMES_HPP
#define SONVIA_PC_AUDIO_NAMES_HPP

#include "SonviaPCAudioDll.h"

#include <string>
#include <string_view>

namespace sonvia {

enum class LogLevel {
    /// every call and every packet
    Debug = 0,
    /// the steps of a session
    Info = 1,
    /// what a host may have done wrong
    Warning = 3,
    /// what failed
    Error = 4,
};

enum class EventKind {
    /// buffering started
    BufferingStarted = 200001,
    /// buffering ended
    BufferingEnded = 200002,
    /// first audio
    FirstAudio = 200003,
    /// mode changed
    ModeChanged = 200006,
};

enum class ErrorKind {
    /// no connection to the service, or the connection was lost
    Connection = -2,
    /// the stream from the service failed
    Stream = -3,
};

enum class Failure {
    /// SonviaPCAudioDll.dll could not be loaded
    LibraryNotLoaded = 1,
    /// SonviaPCAudioDll.dll lacks a function: it is another library or another version
    NotTheLibrary = 2,
    /// QuPCAudio.exe did not start: it belongs next to the host's executable
    ServiceNotStarted = 3,
    /// a session is open already in this process
    SessionOpen = 4,
    /// the session is not open
    NotOpen = 5,
    /// a session is neither opened nor closed inside a callback
    InsideCallback = 6,
    /// a text has more than 255 bytes of UTF-8
    TextTooLong = 7,
    /// a text is not valid UTF-8
    TextNotUtf8 = 8,
    /// a text holds a NUL
    TextHoldsNul = 9,
    /// the log folder could not be created
    FolderNotMade = 10,
    /// the path of the log folder has more than 200 characters
    FolderTooLong = 11,
    /// the service needs a log folder of ASCII without spaces, and this one has no short name
    FolderWithoutShortName = 12,
    /// the library refused the call: a connection is still being made, or memory ran out
    Refused = 13,
};

inline constexpr unsigned kStateUnknown = 4;
inline constexpr unsigned kTextSize = 256;
inline constexpr const wchar_t* kLibraryFile = L"SonviaPCAudioDll.dll";

/// All texts are UTF-8 of at most 255 bytes without a NUL.
struct Identity {
    std::string accountID;
    std::string deviceID;
    std::string sn;
    std::string model;
    std::string bluetoothMac;
    std::string pcName;
};

/// Calls function(name, text) for each text.
template <typename Function>
void forEachText(Identity& identity, Function function) {
    function("accountID", identity.accountID);
    function("deviceID", identity.deviceID);
    function("sn", identity.sn);
    function("model", identity.model);
    function("bluetoothMac", identity.bluetoothMac);
    function("pcName", identity.pcName);
}

/// Calls function(text, field) for each text and its field of the record.
template <typename Function>
void forEachText(const Identity& from, AudioServiceParam& to, Function function) {
    function(from.accountID, to.accountID);
    function(from.deviceID, to.deviceID);
    function(from.sn, to.sn);
    function(from.model, to.model);
    function(from.bluetoothMac, to.bluetoothMac);
    function(from.pcName, to.pcName);
}

constexpr const char* nameOf(LogLevel value) {
    switch (value) {
    case LogLevel::Debug:
        return "debug";
    case LogLevel::Info:
        return "info";
    case LogLevel::Warning:
        return "warning";
    case LogLevel::Error:
        return "error";
    }
    return "unknown";
}

constexpr const char* textOf(LogLevel value) {
    switch (value) {
    case LogLevel::Debug:
        return "every call and every packet";
    case LogLevel::Info:
        return "the steps of a session";
    case LogLevel::Warning:
        return "what a host may have done wrong";
    case LogLevel::Error:
        return "what failed";
    }
    return "unknown";
}

constexpr const char* nameOf(EventKind value) {
    switch (value) {
    case EventKind::BufferingStarted:
        return "bufferingStarted";
    case EventKind::BufferingEnded:
        return "bufferingEnded";
    case EventKind::FirstAudio:
        return "firstAudio";
    case EventKind::ModeChanged:
        return "modeChanged";
    }
    return "unknown";
}

constexpr const char* textOf(EventKind value) {
    switch (value) {
    case EventKind::BufferingStarted:
        return "buffering started";
    case EventKind::BufferingEnded:
        return "buffering ended";
    case EventKind::FirstAudio:
        return "first audio";
    case EventKind::ModeChanged:
        return "mode changed";
    }
    return "unknown";
}

constexpr const char* nameOf(ErrorKind value) {
    switch (value) {
    case ErrorKind::Connection:
        return "connection";
    case ErrorKind::Stream:
        return "stream";
    }
    return "unknown";
}

constexpr const char* textOf(ErrorKind value) {
    switch (value) {
    case ErrorKind::Connection:
        return "no connection to the service, or the connection was lost";
    case ErrorKind::Stream:
        return "the stream from the service failed";
    }
    return "unknown";
}

constexpr const char* nameOf(Failure value) {
    switch (value) {
    case Failure::LibraryNotLoaded:
        return "libraryNotLoaded";
    case Failure::NotTheLibrary:
        return "notTheLibrary";
    case Failure::ServiceNotStarted:
        return "serviceNotStarted";
    case Failure::SessionOpen:
        return "sessionOpen";
    case Failure::NotOpen:
        return "notOpen";
    case Failure::InsideCallback:
        return "insideCallback";
    case Failure::TextTooLong:
        return "textTooLong";
    case Failure::TextNotUtf8:
        return "textNotUtf8";
    case Failure::TextHoldsNul:
        return "textHoldsNul";
    case Failure::FolderNotMade:
        return "folderNotMade";
    case Failure::FolderTooLong:
        return "folderTooLong";
    case Failure::FolderWithoutShortName:
        return "folderWithoutShortName";
    case Failure::Refused:
        return "refused";
    }
    return "unknown";
}

constexpr const char* textOf(Failure value) {
    switch (value) {
    case Failure::LibraryNotLoaded:
        return "SonviaPCAudioDll.dll could not be loaded";
    case Failure::NotTheLibrary:
        return "SonviaPCAudioDll.dll lacks a function: it is another library or another version";
    case Failure::ServiceNotStarted:
        return "QuPCAudio.exe did not start: it belongs next to the host's executable";
    case Failure::SessionOpen:
        return "a session is open already in this process";
    case Failure::NotOpen:
        return "the session is not open";
    case Failure::InsideCallback:
        return "a session is neither opened nor closed inside a callback";
    case Failure::TextTooLong:
        return "a text has more than 255 bytes of UTF-8";
    case Failure::TextNotUtf8:
        return "a text is not valid UTF-8";
    case Failure::TextHoldsNul:
        return "a text holds a NUL";
    case Failure::FolderNotMade:
        return "the log folder could not be created";
    case Failure::FolderTooLong:
        return "the path of the log folder has more than 200 characters";
    case Failure::FolderWithoutShortName:
        return "the service needs a log folder of ASCII without spaces, and this one has no short name";
    case Failure::Refused:
        return "the library refused the call: a connection is still being made, or memory ran out";
    }
    return "unknown";
}

/// Gives the level of that name, and false if no level has it.
constexpr bool findLogLevel(std::string_view name, LogLevel& level) {
    for (const LogLevel each : {LogLevel::Debug, LogLevel::Info, LogLevel::Warning, LogLevel::Error}) {
        if (name == nameOf(each)) {
            level = each;
            return true;
        }
    }
    return false;
}

} // namespace sonvia

#endif // SONVIA_PC_AUDIO_NAMES_HPP
