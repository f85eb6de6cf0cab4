#include "support/api/api_support.h"
#include "oracle/bytes.h"

namespace support {

DirectHandle::DirectHandle() {
    record->session->setStream(&stream);
}

std::unique_ptr<AudioServiceHandle> DirectHandle::withSession() {
    auto made = std::make_unique<AudioServiceHandle>();
    made->loop = std::make_shared<OUVLoop>();
    made->session = std::make_unique<DirectSession::Session>(made->loop);
    return made;
}

void DirectHandle::receive(const oracle::Bytes& payload) {
    record->session->onRead(chainOf(notify(payload)), 0);
}

bool FakeProcess::waitForEnd(std::chrono::milliseconds limit) {
    ++mSeen.waits;
    mSeen.limit = limit;
    mSeen.packetsBefore = mStream != nullptr ? mStream->packets().size() : 0;
    return mEnds;
}

} // namespace support
