#include "support/api/api_support.h"

namespace support {

DirectHandle::DirectHandle() {
    record->loop = std::make_shared<OUVLoop>();
    record->session = std::make_unique<DirectSession::Session>(record->loop);
    record->session->setStream(&stream);
}

void DirectHandle::receive(const wire::Bytes& payload) {
    record->session->onRead(chainOf(notify(payload)), 0);
}

bool FakeProcess::waitForEnd(std::chrono::milliseconds limit) {
    ++mSeen.waits;
    mSeen.limit = limit;
    mSeen.packetsBefore = mStream != nullptr ? mStream->packets().size() : 0;
    return mEnds;
}

} // namespace support
