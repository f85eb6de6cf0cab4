#pragma once

#include "oracle/aes.h"
#include "oracle/bytes.h"

#include <cstdint>
#include <optional>

namespace oracle {

struct ProtectionSettings {
    bool encrypt = true;
    bool pad = true;
    bool integrity = true;
    bool integrityKnown = true; ///< the one algorithm that there is, or any other number
};

/// One end of a protected connection.
class Protection {
public:
    Protection(const Block& key, const Block& sendStart, const Block& receiveStart)
        : mSend(key, sendStart), mReceive(key, receiveStart) {}

    /// The protected message for a payload.
    Bytes seal(const Bytes& payload);
    /// The payload of a protected message; nothing for one that is to be refused, which leaves the chain alone.
    std::optional<Bytes> open(const Bytes& message);

    ProtectionSettings settings;

private:
    std::uint32_t checkValue(const Bytes& data) const;

    AesChain mSend;
    AesChain mReceive;
};

/// The integrity value, bit by bit.
std::uint32_t integrityOf(const Bytes& data);

} // namespace oracle
