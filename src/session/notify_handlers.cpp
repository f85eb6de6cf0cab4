// What each notification of the service does. Everything here runs on the loop thread.

#include "log/write_log.h"
#include "protocol/entry_walk.h"
#include "session/qu_pc_audio_message.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct QuPCAudioMessage::NotifyRow {
    std::string_view key;
    void (QuPCAudioMessage::*handle)(const EntryView& entry);
};

// In ascending order of the keys, in which one payload's handlers run.
const std::array<QuPCAudioMessage::NotifyRow, QuPCAudioMessage::kNotifyKeys> QuPCAudioMessage::kNotifyRows = {
    {
        {"buffering-end", &QuPCAudioMessage::handleBufferEnd},
        {"buffering-start", &QuPCAudioMessage::handleBufferStart},
        {"change-mode", &QuPCAudioMessage::handleChangeMode},
        {"first-audiopcm", &QuPCAudioMessage::handleFirstPCM},
        {"phone-name", &QuPCAudioMessage::handlePhoneName},
        {"player-state", &QuPCAudioMessage::handlePlayerState},
    }};

// A peer decides how many entries a payload has: only the places of the known ones are kept, the last of each key, and a
// session whose service has gone gives up on the way.
void QuPCAudioMessage::dispatchNotify(const std::uint8_t* payload, std::uint32_t length) {
    const auto isWanted = [this] { return connection() != Connection::Gone; };
    std::array<std::optional<std::uint32_t>, kNotifyKeys> places;
    SpanReader reader(payload, length);
    walkEntries(
        reader,
        [&places](std::string_view key, std::uint32_t typeOffset) {
            for (std::size_t row = 0; row < kNotifyKeys; ++row) {
                if (key == kNotifyRows[row].key) {
                    places[row] = typeOffset;
                }
            }
        },
        isWanted);
    for (std::size_t row = 0; row < kNotifyKeys && isWanted(); ++row) {
        if (places[row].has_value()) {
            (this->*kNotifyRows[row].handle)(EntryView(payload, length, *places[row]));
        }
    }
}

// The state is stored whether or not it could be read: an entry of another type sets it to 0.
void QuPCAudioMessage::handlePlayerState(const EntryView& entry) {
    bool ok = false;
    const std::int32_t state = entry.getInt(ok);
    playerState = static_cast<std::uint32_t>(state);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]Player state is %d.", "QuPCAudioMessage::handlePlayerState",
             __LINE__, state);
}

void QuPCAudioMessage::handleFirstPCM(const EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoFirstAudioPCM.",
             "QuPCAudioMessage::handleFirstPCM", __LINE__);
    reportEvent(SONVIA_EVENT_FIRST_AUDIO, 0);
}

void QuPCAudioMessage::handleBufferStart(const EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingStart.",
             "QuPCAudioMessage::handleBufferStart", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_STARTED, 0);
}

void QuPCAudioMessage::handleBufferEnd(const EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingEnd.",
             "QuPCAudioMessage::handleBufferEnd", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_ENDED, 0);
}

void QuPCAudioMessage::handlePhoneName(const EntryView& entry) {
    bool ok = false;
    const std::string_view name = entry.getText(ok);
    if (ok) {
        phoneName.set(std::string(name));
    }
}

void QuPCAudioMessage::handleChangeMode(const EntryView& entry) {
    bool ok = false;
    const std::int32_t mode = entry.getInt(ok);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]change mode to %d.", "QuPCAudioMessage::handleChangeMode",
             __LINE__, mode);
    reportEvent(SONVIA_EVENT_MODE_CHANGED, mode);
}
