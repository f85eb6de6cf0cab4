#include "api/live_handles.h"

#include "platform/thread_id.h"

#include <bit>
#include <memory>
#include <mutex>
#include <utility>

namespace {

// Aligned as an address is and below every valid one: hosts keep a mark in the low bits, take the smallest numbers for
// errors, and a host that reads through its handle fails at once.
constexpr std::uintptr_t kStep = 16;
constexpr std::uintptr_t kBeforeFirst = 0x1000;

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
    : mHandle(table.beginRelease(handle)) {}

HandleRelease::~HandleRelease() {
    if (mHandle != nullptr) {
        LiveHandles::endRelease(*mHandle);
    }
}

LiveHandles::LiveHandles() : mLastNumber(kBeforeFirst) {}

AudioServiceHandle* LiveHandles::add(std::unique_ptr<HandleEntry> one) {
    const std::lock_guard guard(mMutex);
    HandleEntry* entry = freeEntry();
    if (entry != nullptr) {
        entry->record = std::move(one->record);
    } else {
        entry = one.release();
        entry->next = mNewest.load();
        mNewest = entry;
    }
    if (QuPCAudioMessage* const session = entry->record->session.get(); session != nullptr) {
        session->keepPlayerStateIn(entry->playerState);
    }
    mLastNumber += kStep;
    entry->number = mLastNumber;
    return std::bit_cast<AudioServiceHandle*>(mLastNumber);
}

HandleEntry* LiveHandles::freeEntry() const {
    HandleEntry* entry = mNewest.load();
    while (entry != nullptr && entry->number.load() != 0) {
        entry = entry->next;
    }
    return entry;
}

HandleUse LiveHandles::use(const AudioServiceHandle* handle) {
    HandleUse use;
    HandleEntry* const found = find(handle);
    if (found == nullptr) {
        return use;
    }
    const std::uintptr_t number = numberOf(handle);
    if (found->number.load() == number) {
        found->uses.fetch_add(1);
        use.mTable = this;
        use.mCounted = found;
        // The release marks the number and then looks at the uses: one of the two sees the other.
        if (found->number.load() == number) {
            use.mRecord = found->record.get();
            return use;
        }
        use = HandleUse();
    }
    // A use of the loop thread is over before the thread is joined: it needs no count, and a callback that calls without
    // pause must not keep a release waiting.
    if (found->number.load() == (number | HandleEntry::kReleasing) &&
        found->loopThread.load() == platform::currentThreadId()) {
        use.mRecord = found->record.get();
    }
    return use;
}

void LiveHandles::endUse(HandleEntry& handle) {
    if (handle.uses.fetch_sub(1) == 1 && (handle.number.load() & HandleEntry::kReleasing) != 0) {
        const std::lock_guard guard(mMutex);
        mUseEnded.notifyAll();
    }
}

HandleEntry* LiveHandles::beginRelease(const AudioServiceHandle* handle) {
    const std::lock_guard guard(mMutex);
    HandleEntry* const found = find(handle);
    if (found == nullptr || found->number.load() != numberOf(handle)) {
        return nullptr;
    }
    const auto recordLoopThread = [found] {
        const std::shared_ptr<OUVLoop>& loop = found->record->loop;
        found->loopThread = loop != nullptr ? loop->threadId.load() : 0;
    };
    recordLoopThread(); // its callbacks may call while the release waits
    found->number = numberOf(handle) | HandleEntry::kReleasing;
    while (found->uses.load() != 0) {
        mUseEnded.wait(mMutex);
    }
    recordLoopThread(); // one of those calls may have started the thread
    return found;
}

// Without the lock: the entry is this release's alone until it is free.
void LiveHandles::endRelease(HandleEntry& handle) {
    handle.record = nullptr;
    handle.playerState = HandleEntry::kAskSession;
    handle.number = 0;
}
