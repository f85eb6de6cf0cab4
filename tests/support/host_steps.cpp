#include "support/host_steps.h"

#include "support/host_events.h"
#include "support/standin.h"
#include "support/wait.h"

namespace support {

AudioServiceHandle* startHost(const HostApi& api, const std::string& folder, int level) {
    return api.init(folder.c_str(), level);
}

Result configure(const HostApi& api, AudioServiceHandle* handle) {
    const AudioServiceParam param = completeParam();
    return api.setParam(handle, &param) ? kGood : kSetParamFailed;
}

Result startAndWaitForPipe(const HostApi& api, AudioServiceHandle*& handle, const std::string& folder,
                           int level) {
    HostEvents::instance().reset();
    const std::size_t before = countInRecord("listen");
    handle = startHost(api, folder, level);
    if (handle == nullptr) {
        return kNoHandle;
    }
    return poll([before] { return countInRecord("listen") > before; }, kProcessTimeout) ? kGood : kNoPipe;
}

Result begin(const HostApi& api, AudioServiceHandle*& handle, const std::string& folder, int level) {
    Result result = startAndWaitForPipe(api, handle, folder, level);
    if (result == kGood) {
        result = configure(api, handle);
    }
    if (result != kGood) {
        return result;
    }
    return HostEvents::instance().waitFor(event(SONVIA_EVENT_BUFFERING_STARTED, 0)) ? kGood : kNoEvent;
}

Result wholeLife(const HostApi& api, const std::string& folder, int level) {
    AudioServiceHandle* handle = nullptr;
    const Result begun = begin(api, handle, folder, level);
    if (begun != kGood) {
        return begun;
    }
    api.state(handle);
    api.sourceName(handle);
    api.setAccountID(handle, "account-2");
    api.exitProjection(handle);
    return api.uninit(handle) ? kGood : kUninitFailed;
}

} // namespace support
