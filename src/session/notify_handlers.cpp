// What each notification of the service does. Everything here runs on the loop thread.

#include "log/write_log.h"
#include "protocol/key_value.h"
#include "session/qu_pc_audio_message.h"

#include <map>
#include <memory>

namespace {

constexpr const char* kKeyPlayerState = "player-state";
constexpr const char* kKeyPhoneName = "phone-name";
constexpr const char* kKeyChangeMode = "change-mode";

/// The payload as a chain that borrows its bytes: for the time of the call, without a copy that could be refused.
OBufList borrowed(const std::uint8_t* payload, std::uint32_t length) {
    const auto giveBack = [](ORefBuffer* block) {
        block->data = nullptr;
        delete block;
    };
    OBufList chain(1);
    OBufView& view = chain.front();
    view.buffer = std::shared_ptr<ORefBuffer>(new ORefBuffer, giveBack);
    view.buffer->data = const_cast<std::uint8_t*>(payload); // only read
    view.buffer->capacity = length;
    view.length = length;
    return chain;
}

} // namespace

// Built on the first dispatch and never destroyed: the loop thread may still dispatch while the process runs
// its exit handlers.
QuPCAudioMessage::NotifyHandler QuPCAudioMessage::notifyHandler(const std::string& key) {
    static const auto& handlers = *new std::map<std::string, NotifyHandler>{
        {kKeyPlayerState, &QuPCAudioMessage::handlePlayerState},
        {"first-audiopcm", &QuPCAudioMessage::handleFirstPCM},
        {"buffering-start", &QuPCAudioMessage::handleBufferStart},
        {"buffering-end", &QuPCAudioMessage::handleBufferEnd},
        {kKeyPhoneName, &QuPCAudioMessage::handlePhoneName},
        {kKeyChangeMode, &QuPCAudioMessage::handleChangeMode},
    };
    const auto row = handlers.find(key);
    return row != handlers.end() ? row->second : nullptr;
}

void QuPCAudioMessage::dispatchNotify(const std::uint8_t* payload, std::uint32_t length) {
    const KeyValueData data(borrowed(payload, length));
    for (const auto& [key, offset] : data.entries()) {
        const NotifyHandler handler = notifyHandler(key);
        if (handler != nullptr) {
            (this->*handler)(data);
        }
    }
}

// The state is stored whether or not it could be read: an entry of another type sets it to 0.
void QuPCAudioMessage::handlePlayerState(const KeyValueData& data) {
    bool ok = false;
    const std::int32_t state = data.getInt(kKeyPlayerState, ok);
    playerState = static_cast<std::uint32_t>(state);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]Player state is %d.", "QuPCAudioMessage::handlePlayerState",
             __LINE__, state);
}

void QuPCAudioMessage::handleFirstPCM(const KeyValueData& /*data*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoFirstAudioPCM.",
             "QuPCAudioMessage::handleFirstPCM", __LINE__);
    reportEvent(SONVIA_EVENT_FIRST_AUDIO, 0);
}

void QuPCAudioMessage::handleBufferStart(const KeyValueData& /*data*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingStart.",
             "QuPCAudioMessage::handleBufferStart", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_STARTED, 0);
}

void QuPCAudioMessage::handleBufferEnd(const KeyValueData& /*data*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingEnd.",
             "QuPCAudioMessage::handleBufferEnd", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_ENDED, 0);
}

void QuPCAudioMessage::handlePhoneName(const KeyValueData& data) {
    bool ok = false;
    std::string name = data.getString(kKeyPhoneName, ok);
    if (ok) {
        phoneName.set(std::move(name));
    }
}

void QuPCAudioMessage::handleChangeMode(const KeyValueData& data) {
    bool ok = false;
    const std::int32_t mode = data.getInt(kKeyChangeMode, ok);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]change mode to %d.", "QuPCAudioMessage::handleChangeMode",
             __LINE__, mode);
    reportEvent(SONVIA_EVENT_MODE_CHANGED, mode);
}
