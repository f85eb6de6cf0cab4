// A capture as what it means: packets, marks, and bytes that are neither.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture.h"
#include "oracle/entries.h"
#include "oracle/packets.h"
#include "oracle/protection.h"

namespace inspect {

/// Payloads nested deeper are taken as bytes: a hostile one could be nested sixteen thousand deep.
inline constexpr std::size_t kDeepest = 32;

struct Item {
    std::int64_t at = 0;
    std::size_t line = 0; ///< of the input, where its last byte stands
    Side from = Side::Service;
    std::string mark;         ///< not empty: nothing else counts
    oracle::Bytes bytes;      ///< as they were on the pipe
    std::uint64_t offset = 0; ///< of the first of them in what this side sent on its connection
    bool isPacket = false;    ///< else the bytes are no whole packet, and `fault` says why
    oracle::Packet packet;    ///< its payload is the opened one when `wasOpened`
    bool wasOpened = false;
    /// Of the packet as a whole; faults of entries are found by `rowsOf`. The offset is that in `bytes`.
    std::optional<oracle::Fault> fault;
};

/// An entry of a payload, or where the payload stops being a list of entries.
struct Row {
    std::size_t depth = 0;
    oracle::Entry entry;
    bool isList = false; ///< the rows behind it that are one deeper are its value
    /// Instead of an entry; the offset is that in the packet, in an opened payload that in the payload.
    std::optional<oracle::Fault> fault;
    oracle::Bytes rest; ///< what is left from the fault's entry on
};

/// Whether the mark says that nothing more is sent on the connection.
bool endsConnection(const std::string& mark);

/// The packet's payload with all that is nested in it, in the order of the bytes.
std::vector<Row> rowsOf(const Item& item);

/// The first thing that is wrong with the packet or the bytes.
std::optional<oracle::Fault> firstFault(const Item& item);

/// Cuts what each side sent into packets, which come in the order in which they became whole. Another first byte than '$'
/// is taken as the library takes it, and reported. Of a packet that is larger than any real one the bytes are passed on
/// as they come, so that memory stays bounded.
class ItemReader {
public:
    explicit ItemReader(CaptureReader& reader) : mReader(reader) { startConnection(); }

    /// From here on payloads are opened with this key; the chain of each side, on each connection, begins with `start`.
    void open(const oracle::Block& key, const oracle::Block& start);

    /// False at the end. Throws InputError.
    bool next(Item& item);

private:
    /// What one side sends on one connection.
    struct Stream {
        Side side = Side::Service;
        std::int64_t at = 0; ///< when the last bytes came
        std::size_t line = 0;
        oracle::Bytes bytes;
        std::size_t start = 0;       ///< of what is not yet cut
        std::uint64_t offset = 0;    ///< of that in what the side sent
        std::uint64_t oversized = 0; ///< bytes still to come of a packet that is too large
        std::optional<oracle::Protection> protection;

        std::size_t left() const { return bytes.size() - start; }
    };

    struct Key {
        oracle::Block key;
        oracle::Block start;
    };

    void startConnection();
    static void add(Stream& stream, const Chunk& chunk);
    static bool cut(Stream& stream, Item& item);
    static void cutOversized(Stream& stream, Item& item);
    static bool takeUnfinished(Stream& stream, Item& item);
    static void take(Stream& stream, std::uint64_t size, Item& item);
    static void readPacket(Stream& stream, Item& item);

    CaptureReader& mReader;
    std::optional<Key> mKey;
    Stream mHost;
    Stream mService;
    Chunk mChunk;         ///< the last one that was read
    bool mEnding = false; ///< a connection or the input has ended: what is unfinished comes before that mark
};

} // namespace inspect
