#pragma once

#include "identity.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// The same work with the serialization libraries of Debian.

namespace msgpack_peer {

using Bytes = std::unique_ptr<char, void (*)(void*)>;

/// Bytes that outlive the encoder, as an asynchronous write wants them.
struct Owned {
    Bytes bytes;
    std::size_t size;
};

Owned encodeIdentity(const AudioServiceParam& record);
Owned encodeInt(std::string_view key, std::int32_t value);

/// Into one buffer, used again by each call: what a synchronous writer may do.
std::string_view encodeIdentityAgain(const AudioServiceParam& record);
std::string_view encodeIntAgain(std::string_view key, std::int32_t value);

/// Six texts in one flat map.
std::string encodeTexts(const AudioServiceParam& record);

/// Each unpacks into a zone, then looks up by key. False when something is missing.
bool readTexts(std::string_view bytes, IdentityTexts& out);
bool readIdentity(std::string_view bytes, IdentityTexts& out);
std::int32_t readInt(std::string_view bytes, std::string_view key);

} // namespace msgpack_peer

namespace flatbuffers_peer {

std::string encode(const AudioServiceParam& record);

/// With the verifier, which bytes from another process need. False when they are no identity.
bool readViews(std::string_view bytes, IdentityViews& out);

} // namespace flatbuffers_peer
