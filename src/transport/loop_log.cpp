#include "transport/loop_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

struct SinkSlot {
    std::mutex mutex;
    LoopLogSink sink;
};

// Never destroyed: a loop thread may still log while the process runs its exit handlers.
SinkSlot& sinkSlot() {
    static auto& slot = *new SinkSlot;
    return slot;
}

LoopLogSink currentSink() {
    SinkSlot& slot = sinkSlot();
    const std::lock_guard guard(slot.mutex);
    return slot.sink;
}

} // namespace

void setLoopLogSink(LoopLogSink sink) {
    SinkSlot& slot = sinkSlot();
    const std::lock_guard guard(slot.mutex);
    slot.sink = std::move(sink);
}

void logLoopLine(int level, const char* tag, const char* format, ...) {
    std::array<char, 512> text = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (const LoopLogSink sink = currentSink()) {
        sink(level, tag, text.data());
    } else {
        writeLog(level, tag, "%s", text.data());
    }
}
