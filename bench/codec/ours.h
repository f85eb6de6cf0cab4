#pragma once

#include "identity.h"
#include "transport/buf_list.h"

#include <cstdint>
#include <string_view>

namespace ours {

/// The payload of the device information as the session sends it.
OBufList encodeIdentity(const AudioServiceParam& record);
OBufList encodeText(std::string_view key, std::string_view text);
OBufList encodeInt(std::string_view key, std::uint32_t value);

/// Six texts in one flat payload.
OBufList encodeTexts(const AudioServiceParam& record);

/// Each indexes the payload, then looks up by key. False when something is missing.
bool readTexts(const OBufList& payload, IdentityTexts& out);
bool readViews(const OBufList& payload, IdentityViews& out);
std::string readText(const OBufList& payload, std::string_view key);
std::int32_t readInt(const OBufList& payload, std::string_view key);

/// The texts inside the one nested entry of a payload.
bool readIdentity(const OBufList& payload, IdentityTexts& out);

} // namespace ours
