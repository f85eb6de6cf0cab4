#pragma once

#include <iosfwd>

#include "items.h"

namespace inspect {

/// Writes items as pcapng: one record a packet, or a run of bytes that is none, on the link type that is left to users
/// (147), with its direction. Marks are left out.
class PcapWriter {
public:
    /// Readers refuse a file with a record of more: a longer one is cut, with its length said.
    static constexpr std::size_t kLongestRecord = 262'144;

    /// Writes the file's head.
    explicit PcapWriter(std::ostream& out);

    void write(const Item& item);

private:
    std::ostream& mOut;
};

} // namespace inspect
