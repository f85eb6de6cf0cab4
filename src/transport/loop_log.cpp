#include "transport/loop_log.h"

#include "transport/mutex.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

namespace {

struct SinkSlot {
    OMutex mutex;
    std::shared_ptr<const LoopLogSink> sink; ///< shared: logging a line must not copy it, which allocates
};

// Never destroyed: a loop thread may still log while the process runs its exit handlers.
SinkSlot& sinkSlot() {
    static auto& slot = *new SinkSlot;
    return slot;
}

std::shared_ptr<const LoopLogSink> currentSink() {
    SinkSlot& slot = sinkSlot();
    const std::lock_guard guard(slot.mutex);
    return slot.sink;
}

} // namespace

void setLoopLogSink(LoopLogSink sink) {
    auto next = sink ? std::make_shared<const LoopLogSink>(std::move(sink)) : nullptr;
    SinkSlot& slot = sinkSlot();
    const std::lock_guard guard(slot.mutex);
    slot.sink.swap(next);
}

void logLoopLine(int level, const char* tag, const char* format, ...) {
    std::array<char, 512> text = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (const auto sink = currentSink(); sink != nullptr) {
        (*sink)(level, tag, text.data());
    } else {
        writeLog(level, tag, "%s", text.data());
    }
}
