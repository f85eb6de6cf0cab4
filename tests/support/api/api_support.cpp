#include "support/api/api_support.h"

DirectHandle::DirectHandle() {
    handle->loop = std::make_shared<OUVLoop>();
    handle->session = std::make_unique<DirectSession::Session>(handle->loop);
    handle->session->setStream(&stream);
}

void DirectHandle::receive(const wire::Bytes& payload) {
    handle->session->onRead(chainOf(notify(payload)), 0);
}

bool FakeProcess::waitForEnd(std::chrono::milliseconds limit) {
    ++mSeen.waits;
    mSeen.limit = limit;
    mSeen.packetsBefore = mStream != nullptr ? mStream->packets().size() : 0;
    return mEnds;
}
