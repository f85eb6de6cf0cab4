#pragma once

#include "transport/mutex.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

/// The phone's name: replaced on the loop thread while host threads hold plain pointers to its text.
///
/// A thread's text stays valid until that thread asks again, so a new name never invalidates the text that a host is
/// reading. At most kMaxReaders texts are kept; the thread that asked longest ago loses its text first.
class SourceName {
public:
    static constexpr std::size_t kMaxReaders = 64;

    void set(std::string name);
    /// The name for the calling thread, or null while it is empty.
    const char* get();

private:
    struct Lease {
        std::uint32_t threadId;
        std::shared_ptr<const std::string> name;
    };

    OMutex mMutex;
    std::shared_ptr<const std::string> mName = std::make_shared<const std::string>();
    std::list<Lease> mLeases; ///< the latest reader first
};
