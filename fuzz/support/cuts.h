#pragma once

#include "oracle/bytes.h"
#include "transport/buf_list.h"

#include <cstdint>
#include <vector>

/// Cuts a stream into the chunks of several reads. `seed` decides where: 0 cuts nothing, 1 cuts after every byte, any
/// other number cuts somewhere, into chunks of one or several pieces, each at the start or in the middle of a block
/// that it fills or that is much larger than the piece.
std::vector<OBufList> cutIntoChunks(const oracle::Bytes& stream, std::uint8_t seed);

/// One chunk, in pieces as above.
OBufList cutIntoPieces(const oracle::Bytes& bytes, std::uint8_t seed);
