// A stream that goes nowhere and keeps the bytes that it is given.
#pragma once

#include <cstdint>
#include <vector>

#include "transport/buf_list.h"
#include "transport/socket.h"

namespace support {

class KeptStream : public OBaseSocket {
public:
    KeptStream() : OBaseSocket(nullptr) {}

    uv_handle_t* handle() override { return nullptr; }

    void releaseHandle() override {}

    bool readStart() override { return false; }

    bool readStop() override { return false; }

    bool write(const OBufList& list) override {
        for (const OBufView& view : list) {
            bytes.insert(bytes.end(), view.data(), view.data() + view.length);
        }
        return true;
    }

    std::vector<std::uint8_t> bytes;
};

} // namespace support
