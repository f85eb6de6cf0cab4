#pragma once

#include "api/audio_service_handle.h"
#include "transport/mutex.h"

#include <cstdint>
#include <list>
#include <memory>

/// A record, and what is known of the handle that stands for it.
struct HandleEntry {
    std::unique_ptr<AudioServiceHandle> record;
    std::uintptr_t number = 0;
    std::uint32_t uses = 0;       ///< calls under way; those of the record's loop thread are not counted
    std::uint32_t loopThread = 0; ///< known from the release on
    bool isReleased = false;      ///< the release has begun
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
    LiveHandles& mTable;
    HandleEntry* mHandle;
};

/// The handles that hosts hold. A handle is a number that is never given twice in a process, and no address: one that
/// was released is never taken for another session's. From the beginning of its release a handle is known only to its
/// own loop thread, so that a callback under way still gets its answers. Any thread; no memory is kept for released
/// handles.
class LiveHandles {
public:
    LiveHandles();

    /// Takes over the one record of `one`, and gives the handle for it. Needs no memory.
    AudioServiceHandle* add(std::list<HandleEntry>& one);
    /// The record behind a host's handle; empty when the handle is not live.
    HandleUse use(const AudioServiceHandle* handle);

private:
    friend class HandleUse;
    friend class HandleRelease;

    HandleEntry* find(const AudioServiceHandle* handle);
    void endUse(HandleEntry& handle);
    HandleEntry* beginRelease(const AudioServiceHandle* handle);
    void endRelease(const HandleEntry& handle);

    OMutex mMutex; ///< guards all below; held neither while a record is used nor while it is destroyed
    OCondition mUseEnded;
    std::list<HandleEntry> mHandles;
    std::uintptr_t mLastNumber;
};

/// The process's own.
LiveHandles& liveHandles();
