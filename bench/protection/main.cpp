// Compares the protection layer with OpenSSL's AES and zlib's crc32, in one run. Every operation's result is
// checked before anything is timed. Ends with 1 when a bound is missed and with 2 when a result is wrong.
//
// OpenSSL decides when it is loaded which processor features it uses, so its scalar code is measured by a
// second process, which this one starts with those features masked.

#include "comparison.h"
#include "peers.h"

#include "protocol/aes128.h"
#include "protocol/integrity_value.h"
#include "protocol/safety_data_deal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>
#include <string>

namespace {

using Bound = Comparison::Bound;
using Key = std::span<const std::uint8_t, kAesBlockSize>;

constexpr std::size_t kSmall = 64;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kLarge = std::size_t{1} << 20;
constexpr std::uint8_t kKey[kAesBlockSize] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 11, 22, 33, 44, 55, 66};
constexpr std::uint8_t kIv[kAesBlockSize] = {1, 1, 2, 3, 5, 8, 13, 21, 34, 55, 89, 144, 233, 1, 2, 3};

/// Keeps the compiler from dropping a result that nobody reads.
volatile std::uint32_t gSink = 0;

void require(bool right, const char* what) {
    if (!right) {
        std::fprintf(stderr, "wrong result: %s\n", what);
        std::exit(2);
    }
}

const Bytes& input() {
    static const Bytes bytes = [] {
        std::mt19937 random(1);
        Bytes made(kLarge);
        for (std::uint8_t& byte : made) {
            byte = static_cast<std::uint8_t>(random());
        }
        return made;
    }();
    return bytes;
}

Bytes& output() {
    static Bytes bytes(kLarge + 64);
    return bytes;
}

std::string sizeName(std::size_t size) {
    return size == kSmall ? "64 B" : size == kPage ? "4 KB" : "1 MB";
}

Aes128State stateFor(const Aes128Code& code, bool encrypting) {
    Aes128State state;
    (encrypting ? code.expandForEncryption : code.expandForDecryption)(kKey, state);
    std::memcpy(state.iv, kIv, kAesBlockSize);
    return state;
}

auto operationOf(const Aes128Code& code, bool encrypting) {
    return encrypting ? code.cbcEncrypt : code.cbcDecrypt;
}

Bytes openSslResult(bool encrypting, std::size_t size) {
    Bytes result(size);
    OpenSslCbc(kKey, kIv, encrypting).update(input().data(), result.data(), size);
    return result;
}

void checkAes(const Aes128Code& code) {
    for (const bool encrypting : {true, false}) {
        for (const std::size_t size : {kSmall, kPage, kLarge}) {
            Aes128State state = stateFor(code, encrypting);
            Bytes ours(size);
            operationOf(code, encrypting)(state, input().data(), ours.data(), size / kAesBlockSize);
            const Bytes theirs = openSslResult(encrypting, size);
            require(ours == theirs, "AES differs from OpenSSL");
            Bytes message(size);
            openSslWholeMessage(kKey, kIv, encrypting, input().data(), message.data(), size);
            require(message == theirs, "OpenSSL's calls differ among each other");
        }
    }
}

void checkIntegrity() {
    const auto* digits = reinterpret_cast<const std::uint8_t*>("123456789");
    require(byteTableIntegrity(digits, 9) == 0xE7E67603U, "byte table");
    require(zlibCrc32(digits, 9) == 0xCBF43926U, "zlib's crc32");
    for (const std::size_t size : {kSmall, kPage, kLarge}) {
        const std::uint32_t expected = byteTableIntegrity(input().data(), size);
        require(integrityValueSliced(input().data(), size) == expected, "sliced integrity value");
        require(integrityValue(input().data(), size) == expected, "integrity value");
    }
}

/// A message's data with all three flags on and the payload a multiple of the block size.
Bytes checkedMessage(std::size_t size) {
    const auto sender = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    const auto receiver = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    std::uint8_t* buffer = nullptr;
    std::size_t bufferSize = 0;
    require(sender->encryptData(input().data(), size, &buffer, &bufferSize), "encryptData");
    const Bytes message(buffer, buffer + bufferSize);
    std::free(buffer);
    require(message.size() == 9 + size + kAesBlockSize, "size of a protected message");
    require(std::memcmp(message.data() + 9, openSslResult(true, size).data(), size) == 0,
            "encrypted payload");
    require(receiver->decryptData(message.data(), message.size(), &buffer, &bufferSize), "decryptData");
    require(Bytes(buffer, buffer + bufferSize) == Bytes(input().data(), input().data() + size), "payload");
    std::free(buffer);
    return message;
}

Comparison compareChain(const Aes128Code& code, bool encrypting, std::size_t size, const char* peer,
                        Bound bound, double target) {
    Aes128State state = stateFor(code, encrypting);
    OpenSslCbc theirs(kKey, kIv, encrypting);
    const auto run = operationOf(code, encrypting);
    return compare(
        std::string("AES-CBC ") + (encrypting ? "encrypt " : "decrypt ") + sizeName(size) + ", chain goes on",
        peer, [&] { run(state, input().data(), output().data(), size / kAesBlockSize); },
        [&] { theirs.update(input().data(), output().data(), size); }, bound, target);
}

Comparison compareMessage(bool encrypting, bool keepsCipher, Bound bound) {
    Aes128State state = stateFor(aes128(), encrypting);
    OpenSslCbc theirs(kKey, kIv, encrypting);
    const auto run = operationOf(aes128(), encrypting);
    const Operation kept = [&] { theirs.message(kIv, input().data(), output().data(), kSmall); };
    const Operation whole = [&] {
        openSslWholeMessage(kKey, kIv, encrypting, input().data(), output().data(), kSmall);
    };
    return compare(
        std::string("AES-CBC ") + (encrypting ? "encrypt " : "decrypt ") + "64 B, one message",
        keepsCipher ? "EVP set IV, update, final" : "EVP new, init, update, final",
        [&] {
            std::memcpy(state.iv, kIv, kAesBlockSize);
            run(state, input().data(), output().data(), kSmall / kAesBlockSize);
        },
        keepsCipher ? kept : whole, bound, 4.0);
}

std::vector<Comparison> compareAes() {
    std::vector<Comparison> rows;
    for (const std::size_t size : {kPage, kLarge}) {
        for (const bool encrypting : {true, false}) {
            rows.push_back(compareChain(aes128(), encrypting, size, "EVP update", Bound::SpeedAtLeast, 0.95));
        }
    }
    for (const bool encrypting : {true, false}) {
        rows.push_back(compareMessage(encrypting, true, Bound::SpeedAtLeast));
        rows.push_back(compareMessage(encrypting, false, Bound::None));
        rows.push_back(compareChain(aes128(), encrypting, kSmall, "EVP update", Bound::None, 0));
    }
    return rows;
}

std::vector<Comparison> compareIntegrity() {
    std::vector<Comparison> rows;
    const auto add = [&](const char* what, IntegrityCode ours, const char* peer, IntegrityCode theirs,
                         std::size_t size, Bound bound, double target) {
        rows.push_back(compare(
            std::string(what) + " " + sizeName(size), peer, [&] { gSink = ours(input().data(), size); },
            [&] { gSink = theirs(input().data(), size); }, bound, target));
    };
    add("integrity, sliced", integrityValueSliced, "byte table", byteTableIntegrity, kPage,
        Bound::SpeedAtLeast, 4.5);
    if (integrityValueFolded() != nullptr) {
        for (const std::size_t size : {kPage, kLarge}) {
            add("integrity, folded", integrityValueFolded(), "zlib crc32", zlibCrc32, size,
                Bound::SpeedAtLeast, 1.5);
        }
        add("integrity, folded", integrityValueFolded(), "byte table", byteTableIntegrity, kPage, Bound::None,
            0);
    }
    return rows;
}

std::vector<Comparison> compareMessages() {
    const auto sender = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    const auto receiver = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    const Bytes message = checkedMessage(kPage);
    OpenSslCbc encryption(kKey, kIv, true);
    OpenSslCbc decryption(kKey, kIv, false);
    std::uint8_t* buffer = nullptr;
    std::size_t size = 0;
    const Operation encrypt = [&] {
        sender->encryptData(input().data(), kPage, &buffer, &size);
        std::free(buffer);
    };
    const Operation decrypt = [&] {
        receiver->decryptData(message.data(), message.size(), &buffer, &size);
        std::free(buffer);
    };
    const Operation copy = [&] {
        std::memcpy(output().data(), input().data(), kPage);
        gSink = output()[kPage / 2];
    };
    return {compare(
                "encryptData 4 KB, all three flags", "EVP update (encrypt)", encrypt,
                [&] { encryption.update(input().data(), output().data(), kPage); }, Bound::TimeAtMost, 1.4),
            compare(
                "decryptData 4 KB, all three flags", "EVP update (decrypt)", decrypt,
                [&] { decryption.update(input().data(), output().data(), kPage); }, Bound::TimeAtMost, 2.5),
            compare("encryptData 4 KB, all three flags", "memcpy", encrypt, copy, Bound::Floor, 0),
            compare("decryptData 4 KB, all three flags", "memcpy", decrypt, copy, Bound::Floor, 0)};
}

int runScalar() {
    checkAes(aes128Portable());
    std::vector<Comparison> rows;
    for (const std::size_t size : {kPage, kLarge}) {
        for (const bool encrypting : {true, false}) {
            rows.push_back(compareChain(aes128Portable(), encrypting, size, "EVP update, features masked",
                                        Bound::SpeedAtLeast, 0.75));
        }
    }
    return print("Portable code (ratio: peer's time / ours)", rows) ? 0 : 1;
}

int startScalar(const char* program) {
    setenv("OPENSSL_ia32cap", "0:0", 1);
    return std::system((std::string("\"") + program + "\" --scalar").c_str());
}

int runAll(const char* program) {
    checkAes(aes128());
    checkAes(aes128Portable());
    checkIntegrity();
    bool allMet = print("AES (ratio: peer's time / ours)", compareAes());
    allMet = print("Integrity value (ratio: peer's time / ours)", compareIntegrity()) && allMet;
    allMet = print("Whole messages (ratio: our time / peer's)", compareMessages()) && allMet;
    allMet = startScalar(program) == 0 && allMet;
    std::printf("\n%s\n", allMet ? "all targets met" : "A TARGET WAS MISSED");
    return allMet ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    return argc > 1 && std::strcmp(argv[1], "--scalar") == 0 ? runScalar() : runAll(argv[0]);
}
