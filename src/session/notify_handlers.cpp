// What each notification of the service does. Everything here runs on the loop thread.

#include "log/write_log.h"
#include "protocol/entry_view.h"
#include "protocol/entry_walk.h"
#include "session/qu_pc_audio_message.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct QuPCAudioMessage::NotifyTable {
    struct Row {
        std::string_view key;
        void (QuPCAudioMessage::*handle)(const protocol::EntryView& entry);
    };

    // In ascending order of the keys, in which one payload's handlers run.
    static constexpr std::array<Row, 6> kRows = {{
        {protocol::kKeyBufferingEnd, &QuPCAudioMessage::handleBufferEnd},
        {protocol::kKeyBufferingStart, &QuPCAudioMessage::handleBufferStart},
        {protocol::kKeyChangeMode, &QuPCAudioMessage::handleChangeMode},
        {protocol::kKeyFirstAudioPCM, &QuPCAudioMessage::handleFirstPCM},
        {protocol::kKeyPhoneName, &QuPCAudioMessage::handlePhoneName},
        {protocol::kKeyPlayerState, &QuPCAudioMessage::handlePlayerState},
    }};
};

namespace {

/// For each length of a key the only row that it can be: no two keys are equally long.
template <typename Rows>
constexpr auto rowsByLength(const Rows& rows) {
    std::array<std::uint8_t, protocol::kMaxKeyLength + 1> byLength = {};
    for (std::size_t row = 0; row < rows.size(); ++row) {
        byLength.at(rows.at(row).key.size()) = static_cast<std::uint8_t>(row);
    }
    return byLength;
}

} // namespace

// A peer decides how many entries a payload has: only views of the known ones are kept, the last of each key, and a
// session whose service has gone gives up on the way.
void QuPCAudioMessage::dispatchNotify(const std::uint8_t* payload, std::uint32_t length) {
    static constexpr auto kRowOfLength = rowsByLength(NotifyTable::kRows);
    static_assert(std::all_of(NotifyTable::kRows.begin(), NotifyTable::kRows.end(),
                              [](const auto& row) {
                                  return &NotifyTable::kRows.at(kRowOfLength.at(row.key.size())) == &row;
                              }),
                  "two keys are equally long: a row must then be found in another way");
    const auto isWanted = [this] { return connection() != Connection::Gone; };
    std::array<protocol::EntryView, NotifyTable::kRows.size()> found;
    std::uint32_t rows = 0; // a bit for each that was found
    protocol::walkEntries(
        payload, length,
        [&found, &rows](protocol::EntryView entry) {
            const std::uint8_t row = kRowOfLength[entry.key().size()];
            if (entry.key() == NotifyTable::kRows[row].key) {
                found[row] = entry;
                rows |= 1U << row;
            }
        },
        isWanted);
    for (; rows != 0 && isWanted(); rows &= rows - 1) {
        const auto row = static_cast<std::size_t>(std::countr_zero(rows));
        (this->*NotifyTable::kRows[row].handle)(found[row]);
    }
}

// Kept for compatibility: an entry of another type stores 0. The hosts that poll the state see that value.
void QuPCAudioMessage::handlePlayerState(const protocol::EntryView& entry) {
    const std::int32_t state = entry.getInt().value_or(0);
    *mPlayerState = static_cast<std::uint32_t>(state);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]Player state is %d.", "QuPCAudioMessage::handlePlayerState",
             __LINE__, state);
}

void QuPCAudioMessage::handleFirstPCM(const protocol::EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoFirstAudioPCM.",
             "QuPCAudioMessage::handleFirstPCM", __LINE__);
    reportEvent(SONVIA_EVENT_FIRST_AUDIO, 0);
}

void QuPCAudioMessage::handleBufferStart(const protocol::EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingStart.",
             "QuPCAudioMessage::handleBufferStart", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_STARTED, 0);
}

void QuPCAudioMessage::handleBufferEnd(const protocol::EntryView& /*entry*/) {
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]kKORUSinkInfoBufferingEnd.",
             "QuPCAudioMessage::handleBufferEnd", __LINE__);
    reportEvent(SONVIA_EVENT_BUFFERING_ENDED, 0);
}

void QuPCAudioMessage::handlePhoneName(const protocol::EntryView& entry) {
    if (const std::optional<std::string_view> name = entry.getText()) {
        phoneName.set(std::string(*name));
    }
}

void QuPCAudioMessage::handleChangeMode(const protocol::EntryView& entry) {
    const std::int32_t mode = entry.getInt().value_or(0);
    writeLog(kLogDebug, kLogTagSession, "[%s:%d]change mode to %d.", "QuPCAudioMessage::handleChangeMode",
             __LINE__, mode);
    reportEvent(SONVIA_EVENT_MODE_CHANGED, mode);
}
