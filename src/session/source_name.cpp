#include "session/source_name.h"

#include "platform/thread_id.h"

#include <algorithm>
#include <mutex>
#include <utility>

void SourceName::set(std::string name) {
    auto next = std::make_shared<const std::string>(std::move(name));
    const std::lock_guard guard(mMutex);
    mName = std::move(next);
}

const char* SourceName::get() {
    const std::uint32_t reader = platform::currentThreadId();
    const std::lock_guard guard(mMutex);
    if (mName->c_str()[0] == '\0') { // a name that begins with a zero byte reads as an empty one, too
        return nullptr;
    }
    const auto own = std::find_if(mLeases.begin(), mLeases.end(),
                                  [reader](const Lease& lease) { return lease.threadId == reader; });
    if (own != mLeases.end()) {
        if (own->name != mName) { // counting a use of the same text would cost more than all the rest
            own->name = mName;
        }
        mLeases.splice(mLeases.begin(), mLeases, own);
    } else {
        mLeases.push_front({reader, mName});
        if (mLeases.size() > kMaxReaders) {
            mLeases.pop_back();
        }
    }
    return mName->c_str();
}
