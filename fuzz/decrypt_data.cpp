// Byte 0 of an input chooses the flags of the sending end (bits 0 to 2) and whether the receiving end knows
// the integrity algorithm (bit 3). The rest is first given to decryptData as a message from a peer that
// cannot be trusted, then sent as a payload.

#include "protocol/safety_data_deal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

namespace {

constexpr std::uint8_t kKey[kAesBlockSize] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr std::uint8_t kIv[kAesBlockSize] = {16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1};
constexpr std::size_t kSmallestHeader = 3;

#ifdef _WIN32
constexpr const char* kNowhere = "NUL";
#else
constexpr const char* kNowhere = "/dev/null";
#endif

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::shared_ptr<SafetyDataDeal> makeContext(std::uint8_t choice) {
    using Block = std::span<const std::uint8_t, kAesBlockSize>;
    auto context = SafetyDataDeal::create(Block(kKey), Block(kIv), Block(kIv));
    context->mEncryptOn = (choice & 1U) != 0;
    context->mBlockPad = (choice & 2U) != 0;
    context->mIntegrityOn = (choice & 4U) != 0;
    context->mIntegrityType = (choice & 8U) != 0 ? 1 : 2;
    return context;
}

/// A payload must come back through two ends whose chains are in step.
void expectRoundTrip(SafetyDataDeal& sender, SafetyDataDeal& receiver, const std::uint8_t* data,
                     std::size_t size) {
    std::uint8_t* message = nullptr;
    std::size_t messageSize = 0;
    require(sender.encryptData(data, size, &message, &messageSize));
    std::uint8_t* plain = nullptr;
    std::size_t plainSize = 0;
    require(receiver.decryptData(message, messageSize, &plain, &plainSize));
    require(plainSize == size && (size == 0 || std::memcmp(plain, data, size) == 0));
    std::free(plain);
    std::free(message);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Every refused message writes a line.
    return std::freopen(kNowhere, "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::uint8_t choice = *data++;
    --size;
    const auto sender = makeContext(choice);
    const auto receiver = makeContext(choice);
    std::uint8_t* plain = nullptr;
    std::size_t plainSize = 1;
    if (receiver->decryptData(data, size, &plain, &plainSize)) {
        require(size >= kSmallestHeader && plainSize <= size - kSmallestHeader);
        std::free(plain);
        const auto fresh = makeContext(choice);
        expectRoundTrip(*sender, *fresh, data, size);
    } else {
        // A refused message has not moved the receiving chain, so the two ends are still in step.
        require(plain == nullptr && plainSize == 0);
        expectRoundTrip(*sender, *receiver, data, size);
    }
    return 0;
}
