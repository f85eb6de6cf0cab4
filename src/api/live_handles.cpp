#include "api/live_handles.h"

#include "platform/thread_id.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <utility>

namespace {

// Aligned as an address is and below every valid one: hosts keep a mark in the low bits, take the smallest numbers for
// errors, and a host that reads through its handle fails at once.
constexpr std::uintptr_t kStep = 16;
constexpr std::uintptr_t kBeforeFirst = 0x1000;

bool isLoopThread(const HandleEntry& handle) {
    if (handle.isReleased) {
        return handle.loopThread == platform::currentThreadId();
    }
    const std::shared_ptr<OUVLoop>& loop = handle.record->loop; // the release alone drops it
    return loop != nullptr && loop->onLoopThread();
}

} // namespace

HandleUse::HandleUse(HandleUse&& other) noexcept
    : mRecord(std::exchange(other.mRecord, nullptr)), mTable(other.mTable),
      mCounted(std::exchange(other.mCounted, nullptr)) {}

HandleUse& HandleUse::operator=(HandleUse&& other) noexcept {
    std::swap(mRecord, other.mRecord);
    std::swap(mTable, other.mTable);
    std::swap(mCounted, other.mCounted);
    return *this;
}

HandleUse::~HandleUse() {
    if (mCounted != nullptr) {
        mTable->endUse(*mCounted);
    }
}

HandleRelease::HandleRelease(LiveHandles& table, const AudioServiceHandle* handle)
    : mTable(table), mHandle(table.beginRelease(handle)) {}

HandleRelease::~HandleRelease() {
    if (mHandle != nullptr) {
        mTable.endRelease(*mHandle);
    }
}

LiveHandles::LiveHandles() : mLastNumber(kBeforeFirst) {}

AudioServiceHandle* LiveHandles::add(std::list<HandleEntry>& one) {
    const std::lock_guard guard(mMutex);
    mLastNumber += kStep;
    one.front().number = mLastNumber;
    mHandles.splice(mHandles.end(), one);
    return std::bit_cast<AudioServiceHandle*>(mLastNumber);
}

HandleEntry* LiveHandles::find(const AudioServiceHandle* handle) {
    const auto number = std::bit_cast<std::uintptr_t>(handle);
    const auto place = std::find_if(mHandles.begin(), mHandles.end(),
                                    [number](const HandleEntry& each) { return each.number == number; });
    return place != mHandles.end() ? &*place : nullptr;
}

HandleUse LiveHandles::use(const AudioServiceHandle* handle) {
    const std::lock_guard guard(mMutex);
    HandleUse use;
    HandleEntry* const found = find(handle);
    // A use of the loop thread is over before the thread is joined: it needs no count, and a callback that calls without
    // pause must not keep a release waiting.
    const bool isCounted = found != nullptr && !isLoopThread(*found);
    if (found == nullptr || (isCounted && found->isReleased)) {
        return use;
    }
    use.mRecord = found->record.get();
    if (isCounted) {
        ++found->uses;
        use.mTable = this;
        use.mCounted = found;
    }
    return use;
}

void LiveHandles::endUse(HandleEntry& handle) {
    const std::lock_guard guard(mMutex);
    --handle.uses;
    mUseEnded.notifyAll();
}

HandleEntry* LiveHandles::beginRelease(const AudioServiceHandle* handle) {
    const std::lock_guard guard(mMutex);
    HandleEntry* const found = find(handle);
    if (found == nullptr || found->isReleased) {
        return nullptr;
    }
    const auto loopThread = [found] {
        return found->record->loop != nullptr ? found->record->loop->threadId.load() : 0;
    };
    found->loopThread = loopThread(); // its callbacks may call while the release waits
    found->isReleased = true;
    while (found->uses != 0) {
        mUseEnded.wait(mMutex);
    }
    found->loopThread = loopThread(); // one of those calls may have started the thread
    return found;
}

void LiveHandles::endRelease(const HandleEntry& handle) {
    std::list<HandleEntry> released; // destroyed without the lock
    const std::lock_guard guard(mMutex);
    const auto place = std::find_if(mHandles.begin(), mHandles.end(),
                                    [&handle](const HandleEntry& each) { return &each == &handle; });
    released.splice(released.end(), mHandles, place);
}

LiveHandles& liveHandles() {
    // Never destroyed: threads of the host may still call when the process ends.
    static LiveHandles& table = *new LiveHandles;
    return table;
}
