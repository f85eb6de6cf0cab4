#pragma once

#include "transport/mutex.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

/// The phone's name: replaced on the loop thread while host threads hold plain pointers to its text.
///
/// Each thread that asked keeps the text it was given alive until it asks again, so a name that arrives while
/// a host reads never pulls the text away. At most kMaxReaders texts are kept for that; the thread that asked
/// longest ago goes first.
class SourceName {
public:
    static constexpr std::size_t kMaxReaders = 64;

    void set(std::string name);
    /// The name for the calling thread, or null while it is empty.
    const char* lend();

private:
    struct Lease {
        std::uint32_t threadId;
        std::shared_ptr<const std::string> name;
    };

    OMutex mMutex;
    std::shared_ptr<const std::string> mName = std::make_shared<const std::string>();
    std::list<Lease> mLeases; ///< the latest reader first
};
