#pragma once

#include "api/audio_service_handle.h"
#include "transport/mutex.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>

/// A place for a record, and what is known of the handle that stands for it. Once in the table it is never freed, only used
/// again: a call may read it before it knows whether its handle is live.
struct HandleEntry {
    static constexpr std::uintptr_t kReleasing = 1;      ///< added to the number when the release begins
    static constexpr std::uint32_t kAskSession = 0 - 1U; ///< no player's state that is kept here

    std::unique_ptr<AudioServiceHandle> record;
    std::atomic<std::uintptr_t> number{0}; ///< 0: free
    std::atomic<std::uint32_t> uses{
        0}; ///< calls under way; of the loop thread's only those begun before the release
    std::atomic<std::uint32_t> loopThread{0};            ///< known from the release on
    std::atomic<std::uint32_t> playerState{kAskSession}; ///< the session's
    HandleEntry* next = nullptr;                         ///< set before the entry is in the table
};

class LiveHandles;

/// One call's use of a record: the record stays whole until it ends. Empty when there was none to use.
class HandleUse {
public:
    HandleUse() = default;
    HandleUse(HandleUse&& other) noexcept;
    HandleUse& operator=(HandleUse&& other) noexcept;
    ~HandleUse();

    explicit operator bool() const { return mRecord != nullptr; }

    AudioServiceHandle& operator*() const { return *mRecord; }

    AudioServiceHandle* operator->() const { return mRecord; }

private:
    friend class LiveHandles;

    AudioServiceHandle* mRecord = nullptr;
    LiveHandles* mTable = nullptr;
    HandleEntry* mCounted = nullptr; ///< null for a use that is not counted
};

/// The release of one handle, which ends with this object. Empty for a handle that is not live or is being released.
class HandleRelease {
public:
    /// Waits for the calls under way.
    HandleRelease(LiveHandles& table, const AudioServiceHandle* handle);
    ~HandleRelease();
    HandleRelease(const HandleRelease&) = delete;
    HandleRelease& operator=(const HandleRelease&) = delete;

    explicit operator bool() const { return mHandle != nullptr; }

    AudioServiceHandle& operator*() const { return *mHandle->record; }

private:
    HandleEntry* mHandle;
};

/// The handles that hosts hold. A handle is a number that is never given twice in a process, and no address: one that
/// was released is never taken for another session's. From the beginning of its release a handle is known only to its
/// own loop thread, so that a callback under way still gets its answers. Any thread; only a release waits.
class LiveHandles {
public:
    LiveHandles();

    /// Takes over the record of `one`, and gives the handle for it. Needs no memory.
    AudioServiceHandle* add(std::unique_ptr<HandleEntry> one);
    /// The record behind a host's handle; empty when the handle is not live.
    HandleUse use(const AudioServiceHandle* handle);

    /// The player's state, for the host that polls it: writes nothing that other threads read. kAskSession when only use()
    /// can tell.
    std::uint32_t playerState(const AudioServiceHandle* handle) const {
        const HandleEntry* const found = find(handle);
        if (found == nullptr) {
            return HandleEntry::kAskSession;
        }
        const std::uint32_t state = found->playerState.load(std::memory_order_acquire);
        // A state of the entry's next session was stored after the number had changed.
        return found->number.load(std::memory_order_relaxed) == numberOf(handle) ? state
                                                                                 : HandleEntry::kAskSession;
    }

private:
    friend class HandleUse;
    friend class HandleRelease;

    static std::uintptr_t numberOf(const AudioServiceHandle* handle) {
        return std::bit_cast<std::uintptr_t>(handle);
    }

    /// The handle's entry, also while it is being released.
    HandleEntry* find(const AudioServiceHandle* handle) const {
        const std::uintptr_t number = numberOf(handle);
        HandleEntry* entry = number != 0 ? mNewest.load(std::memory_order_acquire) : nullptr;
        while (entry != nullptr &&
               (entry->number.load(std::memory_order_acquire) & ~HandleEntry::kReleasing) != number) {
            entry = entry->next;
        }
        return entry;
    }

    HandleEntry* freeEntry() const;
    void endUse(HandleEntry& handle);
    HandleEntry* beginRelease(const AudioServiceHandle* handle);
    static void endRelease(HandleEntry& handle);

    OMutex
        mMutex; ///< one thread at a time adds or begins a release; held neither while a record is used nor destroyed
    OCondition mUseEnded;
    std::atomic<HandleEntry*> mNewest{nullptr}; ///< of all entries, as many as there were handles at once
    std::uintptr_t mLastNumber;
};

/// The process's own.
inline LiveHandles& liveHandles() {
    // Never destroyed: threads of the host may still call when the process ends.
    static LiveHandles& table = *new LiveHandles;
    return table;
}
