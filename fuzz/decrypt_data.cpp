// Byte 0 of an input chooses what the two ends do (bits 0 to 3, see makeContext) and how many payloads are sent (bits 4
// to 7, and one more). The rest is first given to decryptData as a message from a peer that cannot be trusted, then it is
// sent in that many payloads. A plain second implementation must agree on every byte, and every payload must come back.

#include "support/input.h"
#include "support/protected_ends.h"
#include "support/require.h"

#include <cstdlib>
#include <optional>

using oracle::Bytes;

namespace {

/// What one call gave, its buffer freed; nothing when it refused.
std::optional<Bytes> taken(bool done, std::uint8_t* data, std::size_t size) {
    if (!done) {
        require(data == nullptr && size == 0, "a refused call gives nothing");
        return std::nullopt;
    }
    require(data != nullptr || size == 0, "bytes have a place");
    Bytes bytes(data, data + size);
    std::free(data);
    return bytes;
}

std::optional<Bytes> decrypted(SafetyDataDeal& context, const Bytes& message) {
    std::uint8_t* data = nullptr;
    std::size_t size = 1;
    const bool done = context.decryptData(message.data(), message.size(), &data, &size);
    return taken(done, data, size);
}

std::optional<Bytes> encrypted(SafetyDataDeal& context, const Bytes& payload) {
    std::uint8_t* data = nullptr;
    std::size_t size = 1;
    const bool done = context.encryptData(payload.data(), payload.size(), &data, &size);
    return taken(done, data, size);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choice = input.takeByte();
    const Bytes message = input.rest();

    const auto receiver = makeContext(choice);
    oracle::Protection model = makeProtection(choice);
    const std::optional<Bytes> opened = decrypted(*receiver, message);
    require(opened == model.open(message), "both opinions open the message alike");
    // Only a refused message has left the receiving chain where the sending one is.
    const bool inStep = !opened;

    const auto sender = makeContext(choice);
    const auto fresh = makeContext(choice);
    const std::size_t payloads = 1 + choice / 16U;
    Input left(message.data(), message.size());
    for (std::size_t count = 0; count < payloads; ++count) {
        const Bytes payload = count + 1 < payloads ? left.take(message.size() / payloads) : left.rest();
        const std::optional<Bytes> sealed = encrypted(*sender, payload);
        require(sealed && *sealed == model.seal(payload), "both opinions seal the payload alike");
        require(decrypted(*fresh, *sealed) == payload, "what was sent arrives");
        require(!inStep || decrypted(*receiver, *sealed) == payload, "a refused message moves no chain");
    }
    return 0;
}
