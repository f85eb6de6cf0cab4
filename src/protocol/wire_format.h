#pragma once

#include "transport/big_endian.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// Every number and text in the bytes on the pipe. docs/protocol.md shows them in use.

#pragma pack(push, 1)

/// The header of every packet, in host byte order.
struct CtrlPacketHeader {
    std::uint8_t magic;    ///< '$' in packets that are sent; not checked in received ones
    std::uint16_t cmdType; ///< command id
    std::uint16_t seq;     ///< chosen by the sender
    std::uint32_t size;    ///< payload bytes that follow, as they are on the pipe
};

#pragma pack(pop)

namespace protocol {

using transport::loadU16;
using transport::loadU32;
using transport::storeU16;
using transport::storeU32;

inline constexpr std::uint8_t kMagic = 0x24; // '$'
inline constexpr std::size_t kHeaderSize = 9;
static_assert(sizeof(CtrlPacketHeader) == kHeaderSize);

/// Where the header's fields begin.
inline constexpr std::size_t kMagicAt = 0;
inline constexpr std::size_t kCmdTypeAt = 1;
inline constexpr std::size_t kSeqAt = 3;
inline constexpr std::size_t kSizeAt = 5;

/// `bytes`: kHeaderSize of them.
inline CtrlPacketHeader loadHeader(const std::uint8_t* bytes) {
    return {bytes[kMagicAt], loadU16(bytes + kCmdTypeAt), loadU16(bytes + kSeqAt), loadU32(bytes + kSizeAt)};
}

inline void storeHeader(std::uint8_t* bytes, const CtrlPacketHeader& header) {
    bytes[kMagicAt] = header.magic;
    storeU16(bytes + kCmdTypeAt, header.cmdType);
    storeU16(bytes + kSeqAt, header.seq);
    storeU32(bytes + kSizeAt, header.size);
}

/// A key's length is one byte.
inline constexpr std::size_t kMaxKeyLength = 255;

/// Type codes of values with a meaning here.
enum ValueType : std::uint8_t { kTypeByte = 3, kTypeInt = 6, kTypeKeyValueBuf = 14, kTypeString = 20 };

/// Widths of the length in front of a nested payload and of a text.
inline constexpr std::size_t kNestedLengthWidth = 2;
inline constexpr std::size_t kTextLengthWidth = 4;

/// How the value after a type byte is laid out: `fixedWidth` bytes, or a length of `lengthWidth` bytes and as many bytes
/// as it says.
struct ValueLayout {
    bool known = false;
    std::uint8_t fixedWidth = 0;
    std::uint8_t lengthWidth = 0;
};

/// The layouts of the type codes 0 to 22; those above are unknown.
inline constexpr std::array<ValueLayout, 23> kValueLayouts = [] {
    constexpr ValueLayout kShortText = {true, 0, kNestedLengthWidth};
    constexpr ValueLayout kLongText = {true, 0, kTextLengthWidth};
    std::array<ValueLayout, 23> layouts = {};
    layouts[0] = layouts[1] = layouts[2] = layouts[kTypeByte] = {true, 1, 0};
    layouts[4] = layouts[5] = {true, 2, 0};
    layouts[kTypeInt] = layouts[7] = layouts[10] = {true, 4, 0};
    layouts[8] = layouts[9] = layouts[11] = {true, 8, 0};
    layouts[12] = layouts[13] = layouts[kTypeKeyValueBuf] = kShortText;
    layouts[kTypeString] = layouts[21] = layouts[22] = kLongText;
    return layouts;
}();

constexpr ValueLayout layoutOf(std::uint8_t type) {
    return type < kValueLayouts.size() ? kValueLayouts[type] : ValueLayout{};
}

/// Keys of the notifications that are sent.
inline constexpr std::string_view kKeyKORUInfo = "KORUInfo";
inline constexpr std::string_view kKeyAccountID = "accountID"; ///< also inside "KORUInfo", as the next five
inline constexpr std::string_view kKeyBluetoothMac = "bluetoothMac";
inline constexpr std::string_view kKeyDeviceID = "deviceID";
inline constexpr std::string_view kKeyModel = "model";
inline constexpr std::string_view kKeySn = "sn";
inline constexpr std::string_view kKeyPcName = "pcName";
inline constexpr std::string_view kKeyExitAudioProjection = "exitAudioProjection";
inline constexpr std::string_view kKeyStopSonviaAudioService = "StopSonviaAudioService";

/// Keys of the notifications that are acted on.
inline constexpr std::string_view kKeyBufferingEnd = "buffering-end";
inline constexpr std::string_view kKeyBufferingStart = "buffering-start";
inline constexpr std::string_view kKeyChangeMode = "change-mode";
inline constexpr std::string_view kKeyFirstAudioPCM = "first-audiopcm";
inline constexpr std::string_view kKeyPhoneName = "phone-name";
inline constexpr std::string_view kKeyPlayerState = "player-state";

} // namespace protocol
