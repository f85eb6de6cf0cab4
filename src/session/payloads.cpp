#include "session/payloads.h"

#include "protocol/command_names.h"
#include "protocol/key_value.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace session {

namespace {

/// A text of the host's record, which may lack its terminating NUL.
std::string_view textOf(const char (&field)[SONVIA_TEXT_SIZE]) {
    return {field, strnlen(field, sizeof field)};
}

OBufList numberPayload(std::string_view key, std::uint32_t value) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addInt(key, value).finish(payload);
    return payload;
}

} // namespace

OBufList accountPayload(const AudioServiceParam& params) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addString(protocol::kKeyAccountID, textOf(params.accountID)).finish(payload);
    return payload;
}

OBufList koruInfoPayload(const AudioServiceParam& params) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf()
        .addNested(protocol::kKeyKORUInfo,
                   [&params](CtrlProtocol::KeyValueBuf& info) {
                       info.addString(protocol::kKeyAccountID, textOf(params.accountID))
                           .addString(protocol::kKeyBluetoothMac, textOf(params.bluetoothMac))
                           .addString(protocol::kKeyDeviceID, textOf(params.deviceID))
                           .addString(protocol::kKeyModel, textOf(params.model))
                           .addString(protocol::kKeySn, textOf(params.sn))
                           .addString(protocol::kKeyPcName, textOf(params.pcName));
                   })
        .finish(payload);
    return payload;
}

OBufList exitProjectionPayload() {
    return numberPayload(protocol::kKeyExitAudioProjection, kNotifyExitProjection);
}

OBufList stopServicePayload() {
    return numberPayload(protocol::kKeyStopSonviaAudioService, kNotifyStopService);
}

} // namespace session
