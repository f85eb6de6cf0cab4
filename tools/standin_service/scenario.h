// A scenario: what the stand-in service does, one step a line. README.md in this folder gives the grammar.
//
// The text is parsed into a flat list of steps; blocks (repeat, split, join) become a begin and an end step,
// so that the player is a plain program counter that can stop anywhere and go on later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "mistake.h"
#include "oracle/bytes.h"

namespace standin {

// The running values of the enclosing repeat blocks, by name.
using Counters = std::map<std::string, std::int64_t>;

// A number in a scenario: written out, or the value of a repeat block's counter.
struct Number {
    std::int64_t literal = 0;
    std::string counter;

    std::int64_t value(const Counters& counters) const;
};

// A text in a scenario; "${name}" in it stands for a counter's value.
struct Text {
    std::string pattern;

    std::string value(const Counters& counters) const;
};

// Bytes of a payload, in order: an entry, or raw bytes that need not form one.
struct EntrySpec {
    enum class Kind { kByte, kInt, kString, kFillString, kNested, kTyped, kHex };

    Kind kind = Kind::kHex;
    Text key;
    Number number;                         // value, fill count
    Text text;                             // value of a string
    std::uint8_t type = 0;                 // of a typed entry
    oracle::Bytes bytes;                   // of a typed entry or of raw bytes
    std::optional<Number> announcedLength; // of a string: written in place of the true length
    std::vector<EntrySpec> nested;
};

struct PacketSpec {
    Number command;
    std::optional<Number> seq;           // the player's own counter when absent
    std::optional<Number> announcedSize; // in place of the true payload size
    std::optional<Number> magic;
    Number cut; // payload bytes left out at the end
    std::vector<EntrySpec> entries;
};

struct WaitTime {
    Number milliseconds;
};

// How long a wait may last, in milliseconds; the player's own limit, or none, when absent.
using Guard = std::optional<std::int64_t>;

struct WaitConnection {
    Guard guard;
};

struct WaitPacket {
    std::optional<Number> command;
    std::optional<Text> key;
    Number count;
    Guard guard;
};

struct WaitFile {
    Text path;
    Guard guard;
};

struct Listen {};

struct SendPacket {
    PacketSpec packet;
};

struct SendBytes {
    oracle::Bytes bytes;
};

struct SendFill {
    Number count;
    std::uint8_t byte = 0;
};

struct Flush {};

struct RepeatBegin {
    std::optional<Number> count; // endless when absent
    std::string counter;
    std::size_t end = 0;
};

struct RepeatEnd {
    std::size_t begin = 0;
};

struct SplitBegin {
    Number pace; // milliseconds between two bytes
};

struct SplitEnd {};

struct JoinBegin {};

struct JoinEnd {};

struct Disconnect {};

struct ClosePipe {};

struct Crash {};

struct Exit {
    Number code;
};

struct ReadingSwitch {
    bool on = false;
};

struct ReadSlowly {
    Number bytes;
    Number pause;
};

struct OnStop {
    bool ignore = false;
    Number code;
    Number after;
};

struct StartChildren {
    Number count;
};

struct Note {
    Text text;
};

using Action =
    std::variant<WaitTime, WaitConnection, WaitPacket, WaitFile, Listen, SendPacket, SendBytes, SendFill,
                 Flush, RepeatBegin, RepeatEnd, SplitBegin, SplitEnd, JoinBegin, JoinEnd, Disconnect,
                 ClosePipe, Crash, Exit, ReadingSwitch, ReadSlowly, OnStop, StartChildren, Note>;

struct Step {
    std::size_t line = 0;
    Action action;
};

struct Scenario {
    // The first step creates the pipe; when the text says `no-pipe` or has a `listen` step of its own, it is
    // a wait for nothing instead.
    std::vector<Step> steps;
    std::optional<std::int64_t> guardSeconds; // the service ends by itself after this time, whatever happens
    std::optional<Mistake> mistake;           // the first one; nothing when the text was understood
};

Scenario parseScenario(std::string_view text);

// The bytes that one packet description stands for. `seq` is used when the description names none.
oracle::Bytes encodePacket(const PacketSpec& packet, std::uint16_t seq, const Counters& counters);

} // namespace standin
