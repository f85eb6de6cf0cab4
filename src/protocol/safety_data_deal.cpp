#include "protocol/safety_data_deal.h"

#include "log/write_log.h"
#include "protocol/integrity_value.h"
#include "protocol/protected_header.h"

#include <cstdlib>
#include <cstring>

using protocol::ProtectedHeader;

namespace {

constexpr const char* kEncryptName = "SafetyDataDeal::encryptData";
constexpr const char* kDecryptName = "SafetyDataDeal::decryptData";

constexpr std::uint32_t kIntegrityCrc = 1;
constexpr std::uint32_t kNoIntegrityValue = 0xFFFFFFFFU;

std::uint32_t integrityOf(std::uint32_t type, const std::uint8_t* data, std::size_t size) {
    return type == kIntegrityCrc ? integrityValue(data, size) : kNoIntegrityValue;
}

/// The low half of an address, which is what the log shows.
unsigned shown(const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

/// Clears both outputs, and returns whether the arguments are valid.
bool takeArguments(const char* name, bool inputUsable, const void* inData, std::size_t inSize,
                   std::uint8_t** outData, std::size_t* outSize) {
    if (outData != nullptr) {
        *outData = nullptr;
    }
    if (outSize != nullptr) {
        *outSize = 0;
    }
    if (inputUsable && outData != nullptr && outSize != nullptr) {
        return true;
    }
    writeLog(kLogError, kLogTagDefault, "[%s:%d]pInData:0x%x inSize:%d ppOutData:0x%x pOutSize:0x%x is error",
             name, __LINE__, shown(inData), static_cast<int>(inSize), shown(outData), shown(outSize));
    return false;
}

/// Writes through a volatile pointer: the compiler would otherwise drop stores that nobody reads.
void wipe(Aes128State& state) {
    volatile auto* bytes = reinterpret_cast<volatile std::uint8_t*>(&state);
    for (std::size_t index = 0; index < sizeof(state); ++index) {
        bytes[index] = 0;
    }
}

/// Encrypts `size` bytes and the zero bytes that fill the last block, `padCount` of them, into `out`.
void encryptPadded(Aes128State& state, const std::uint8_t* data, std::size_t size, std::size_t padCount,
                   std::uint8_t* out) {
    const std::size_t whole = size / kAesBlockSize;
    const std::size_t rest = size % kAesBlockSize;
    const Aes128Implementation& implementation = aes128();
    implementation.cbcEncrypt(state, data, out, whole);
    if (padCount != 0) {
        std::uint8_t last[kAesBlockSize] = {};
        if (rest != 0) {
            std::memcpy(last, data + whole * kAesBlockSize, rest);
        }
        implementation.cbcEncrypt(state, last, out + whole * kAesBlockSize, 1);
    }
}

void copyPadded(const std::uint8_t* data, std::size_t size, std::size_t padCount, std::uint8_t* out) {
    if (size != 0) {
        std::memcpy(out, data, size);
    }
    std::memset(out + size, 0, padCount);
}

} // namespace

std::shared_ptr<SafetyDataDeal>
SafetyDataDeal::create(std::span<const std::uint8_t, kAesBlockSize> key,
                       std::span<const std::uint8_t, kAesBlockSize> encryptIv,
                       std::span<const std::uint8_t, kAesBlockSize> decryptIv) {
    return std::make_shared<SafetyDataDeal>(key, encryptIv, decryptIv);
}

SafetyDataDeal::SafetyDataDeal(std::span<const std::uint8_t, kAesBlockSize> key,
                               std::span<const std::uint8_t, kAesBlockSize> encryptIv,
                               std::span<const std::uint8_t, kAesBlockSize> decryptIv) {
    const Aes128Implementation& implementation = aes128();
    implementation.expandForEncryption(key.data(), mEncryptState);
    implementation.expandForDecryption(key.data(), mDecryptState);
    std::memcpy(mEncryptState.iv, encryptIv.data(), kAesBlockSize);
    std::memcpy(mDecryptState.iv, decryptIv.data(), kAesBlockSize);
}

SafetyDataDeal::~SafetyDataDeal() {
    wipe(mEncryptState);
    wipe(mDecryptState);
}

bool SafetyDataDeal::encryptData(const void* inData, std::size_t inSize, std::uint8_t** outData,
                                 std::size_t* outSize) {
    if (!takeArguments(kEncryptName, inData != nullptr || inSize == 0, inData, inSize, outData, outSize)) {
        return false;
    }
    // CBC works on whole blocks. Refusing the rest would make the packet layer send the payload as plain
    // text, so such data is padded even with padding switched off, and the flags of the message say so.
    const bool padded = mBlockPad || (mEncryptOn && inSize % kAesBlockSize != 0);
    const std::size_t padCount = padded ? kAesBlockSize - inSize % kAesBlockSize : 0;
    const std::size_t headerSize = ProtectedHeader::sizeFor(padded, mIntegrityOn);
    const std::size_t dataSize = inSize + padCount;
    const std::size_t total = headerSize + dataSize;
    auto* message = total > inSize ? static_cast<std::uint8_t*>(std::malloc(total)) : nullptr;
    if (message == nullptr) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", kEncryptName, __LINE__,
                 static_cast<int>(total));
        return false;
    }
    const auto* plain = static_cast<const std::uint8_t*>(inData);
    std::uint8_t* data = message + headerSize;
    if (mEncryptOn) {
        encryptPadded(mEncryptState, plain, inSize, padCount, data);
    } else {
        copyPadded(plain, inSize, padCount, data);
    }
    writeHeader(message, headerSize, padCount, dataSize);
    *outData = message;
    *outSize = total;
    return true;
}

void SafetyDataDeal::writeHeader(std::uint8_t* message, std::size_t headerSize, std::size_t padCount,
                                 std::size_t dataSize) const {
    ProtectedHeader header;
    header.padCount = padCount;
    header.encrypted = mEncryptOn;
    header.integrityPresent = mIntegrityOn;
    header.integrity = kNoIntegrityValue;
    if (mIntegrityOn && dataSize != 0) {
        header.integrity = integrityOf(mIntegrityType, message + headerSize, dataSize);
    } else if (mIntegrityOn) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]outSize:%d headerSize:%d", kEncryptName, __LINE__,
                 static_cast<int>(headerSize + dataSize), static_cast<int>(headerSize));
    }
    if (header.write(message) != headerSize) {
        // GCOVR_EXCL_START The size was computed from the same flags just before.
        writeLog(kLogError, kLogTagDefault, "[%s:%d]idx:%%d headerSize:%%d not same", kEncryptName, __LINE__);
        // GCOVR_EXCL_STOP
    }
}

bool SafetyDataDeal::decryptData(const void* inData, std::size_t inSize, std::uint8_t** outData,
                                 std::size_t* outSize) {
    const bool inputUsable = inData != nullptr && inSize >= ProtectedHeader::kFixedSize;
    if (!takeArguments(kDecryptName, inputUsable, inData, inSize, outData, outSize)) {
        return false;
    }
    if (!unwrap(static_cast<const std::uint8_t*>(inData), inSize, outData, outSize)) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]failed", kDecryptName, __LINE__);
        return false;
    }
    return true;
}

bool SafetyDataDeal::unwrap(const std::uint8_t* message, std::size_t messageSize, std::uint8_t** outData,
                            std::size_t* outSize) {
    ProtectedHeader header;
    if (!header.read(message, messageSize)) {
        return false;
    }
    const std::uint8_t* data = message + header.size;
    const std::size_t dataSize = messageSize - header.size;
    if (header.integrityPresent) {
        const std::uint32_t computed = integrityOf(mIntegrityType, data, dataSize);
        if (computed != header.integrity) {
            writeLog(kLogError, kLogTagDefault,
                     "[%s:%d]mIntegrityType:0X%X integrityVal:0X%X, 0X%X safetyIntegrityData failed",
                     kDecryptName, __LINE__, mIntegrityType, header.integrity, computed);
            return false;
        }
    }
    if (header.encrypted && dataSize % kAesBlockSize != 0) {
        return false;
    }
    if (dataSize == 0) {
        return true;
    }
    auto* plain = static_cast<std::uint8_t*>(std::malloc(dataSize));
    if (plain == nullptr) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]calloc size:%d failed", kDecryptName, __LINE__,
                 static_cast<int>(dataSize));
        return false;
    }
    if (header.encrypted) {
        aes128().cbcDecrypt(mDecryptState, data, plain, dataSize / kAesBlockSize);
    } else {
        std::memcpy(plain, data, dataSize);
    }
    *outData = plain;
    *outSize = dataSize - header.padCount;
    return true;
}
