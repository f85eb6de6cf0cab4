#pragma once

#include "SonviaPCAudioDll.h"

#include <array>
#include <string>
#include <string_view>

/// What a host hands over: six texts in fields of 256 bytes, lengths as real hosts have them.
AudioServiceParam sampleRecord();

struct IdentityField {
    std::string_view key;
    char (AudioServiceParam::*text)[SONVIA_TEXT_SIZE];
};

inline constexpr std::array<IdentityField, 6> kIdentityFields = {{
    {"accountID", &AudioServiceParam::accountID},
    {"bluetoothMac", &AudioServiceParam::bluetoothMac},
    {"deviceID", &AudioServiceParam::deviceID},
    {"model", &AudioServiceParam::model},
    {"sn", &AudioServiceParam::sn},
    {"pcName", &AudioServiceParam::pcName},
}};

using IdentityTexts = std::array<std::string, kIdentityFields.size()>;
using IdentityViews = std::array<std::string_view, kIdentityFields.size()>;

/// The texts of a record, as every reader must find them.
IdentityTexts textsOf(const AudioServiceParam& record);
IdentityTexts textsOf(const IdentityViews& views);
