#pragma once

#include "oracle/bytes.h"

#include <array>
#include <cstdint>

namespace oracle {

using Block = std::array<std::uint8_t, 16>;

/// AES-128, byte by byte as FIPS-197 draws it.
class Aes {
public:
    explicit Aes(const Block& key);

    Block encrypt(Block block) const;
    Block decrypt(Block block) const;

private:
    std::array<Block, 11> mRoundKeys;
};

/// One direction of a CBC chain, which goes on from call to call. The sizes are whole blocks.
class AesChain {
public:
    AesChain(const Block& key, const Block& start) : mAes(key), mLast(start) {}

    Bytes encrypt(const Bytes& plain);
    Bytes decrypt(const Bytes& secret);

private:
    Aes mAes;
    Block mLast;
};

} // namespace oracle
