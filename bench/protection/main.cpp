// Compares the protection layer with OpenSSL's AES and zlib's crc32, in one run. Every operation's result is
// checked before anything is timed. Ends with 1 when a bound is missed and with 2 when a result is wrong.
//
// OpenSSL decides when it is loaded which processor features it uses, so its scalar code is measured by a second process:
// one that is started with OPENSSL_ia32cap=0:0.

#include "peers.h"
#include "support/results.h"

#include "protocol/aes128.h"
#include "protocol/integrity_value.h"
#include "protocol/safety_data_deal.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using Operation = std::function<void()>;
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

Aes128State stateFor(const Aes128Implementation& code, bool encrypting) {
    Aes128State state;
    (encrypting ? code.expandForEncryption : code.expandForDecryption)(kKey, state);
    std::memcpy(state.iv, kIv, kAesBlockSize);
    return state;
}

auto operationOf(const Aes128Implementation& code, bool encrypting) {
    return encrypting ? code.cbcEncrypt : code.cbcDecrypt;
}

Bytes openSslResult(bool encrypting, std::size_t size) {
    Bytes result(size);
    OpenSslCbc(kKey, kIv, encrypting).update(input().data(), result.data(), size);
    return result;
}

void checkAes(const Aes128Implementation& code) {
    for (const bool encrypting : {true, false}) {
        for (const std::size_t size : {kSmall, kPage, kLarge}) {
            Aes128State state = stateFor(code, encrypting);
            Bytes ours(size + planted());
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
    require(byteTableIntegrity(digits, 9) == 0xE7E67603U + planted(), "byte table");
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

std::vector<Target>& targets() {
    static std::vector<Target> all;
    return all;
}

/// Our processor time by the peer's is to be at most `bound`.
void compare(const std::string& what, const std::string& peer, Operation ours, Operation theirs,
             double bound) {
    const auto add = [&](const std::string& who, Operation operation) {
        const std::string name = what + " | " + who;
        benchmark::RegisterBenchmark(name.c_str(),
                                     [operation = std::move(operation)](benchmark::State& state) {
                                         for (auto _ : state) {
                                             operation();
                                         }
                                     });
        return name;
    };
    const std::string ourName = add("beside " + peer + " | ours", std::move(ours));
    targets().push_back({what, ourName, add(peer, std::move(theirs)), "cpu", bound, false});
}

void compareChain(const Aes128Implementation& code, bool encrypting, std::size_t size, const char* peer,
                  double bound) {
    const auto state = std::make_shared<Aes128State>(stateFor(code, encrypting));
    const auto theirs = std::make_shared<OpenSslCbc>(kKey, kIv, encrypting);
    const auto run = operationOf(code, encrypting);
    compare(
        std::string("AES-CBC ") + (encrypting ? "encrypt " : "decrypt ") + sizeName(size) + ", chain goes on",
        peer, [=] { run(*state, input().data(), output().data(), size / kAesBlockSize); },
        [=] { theirs->update(input().data(), output().data(), size); }, bound);
}

void compareMessage(bool encrypting, bool keepsCipher, double bound) {
    const auto state = std::make_shared<Aes128State>(stateFor(aes128(), encrypting));
    const auto theirs = std::make_shared<OpenSslCbc>(kKey, kIv, encrypting);
    const auto run = operationOf(aes128(), encrypting);
    const Operation kept = [=] { theirs->message(kIv, input().data(), output().data(), kSmall); };
    const Operation whole = [=] {
        openSslWholeMessage(kKey, kIv, encrypting, input().data(), output().data(), kSmall);
    };
    compare(
        std::string("AES-CBC ") + (encrypting ? "encrypt " : "decrypt ") + "64 B, one message",
        keepsCipher ? "EVP set IV, update, final" : "EVP new, init, update, final",
        [=] {
            std::memcpy(state->iv, kIv, kAesBlockSize);
            run(*state, input().data(), output().data(), kSmall / kAesBlockSize);
        },
        keepsCipher ? kept : whole, bound);
}

void compareAes() {
    for (const bool encrypting : {true, false}) {
        for (const std::size_t size : {kPage, kLarge}) {
            compareChain(aes128(), encrypting, size, "EVP update", 1.05);
        }
        compareMessage(encrypting, true, 0.25);
        compareMessage(encrypting, false, kNoBound);
        compareChain(aes128(), encrypting, kSmall, "EVP update", kNoBound);
    }
}

void compareIntegrity() {
    const auto add = [](const char* what, IntegrityCode ours, const char* peer, IntegrityCode theirs,
                        std::size_t size, double bound) {
        compare(
            std::string(what) + " " + sizeName(size), peer, [=] { gSink = ours(input().data(), size); },
            [=] { gSink = theirs(input().data(), size); }, bound);
    };
    add("integrity, sliced", integrityValueSliced, "byte table", byteTableIntegrity, kPage, 0.22);
    if (integrityValueFolded() != nullptr) {
        for (const std::size_t size : {kPage, kLarge}) {
            add("integrity, folded", integrityValueFolded(), "zlib crc32", zlibCrc32, size, 0.67);
        }
        add("integrity, folded", integrityValueFolded(), "byte table", byteTableIntegrity, kPage, kNoBound);
    }
}

void compareMessages() {
    const std::shared_ptr sender = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    const std::shared_ptr receiver = SafetyDataDeal::create(Key(kKey), Key(kIv), Key(kIv));
    const Operation encrypt = [=] {
        std::uint8_t* buffer = nullptr;
        std::size_t size = 0;
        sender->encryptData(input().data(), kPage, &buffer, &size);
        std::free(buffer);
    };
    const Operation decrypt = [=, message = checkedMessage(kPage)] {
        std::uint8_t* buffer = nullptr;
        std::size_t size = 0;
        receiver->decryptData(message.data(), message.size(), &buffer, &size);
        std::free(buffer);
    };
    const auto update = [](bool encrypting) {
        const auto cipher = std::make_shared<OpenSslCbc>(kKey, kIv, encrypting);
        return [cipher] { cipher->update(input().data(), output().data(), kPage); };
    };
    const Operation copy = [] {
        std::memcpy(output().data(), input().data(), kPage);
        gSink = output()[kPage / 2];
    };
    compare("encryptData 4 KB, all three flags", "EVP update (encrypt)", encrypt, update(true), 1.4);
    compare("decryptData 4 KB, all three flags", "EVP update (decrypt)", decrypt, update(false), 2.5);
    compare("encryptData 4 KB, all three flags", "memcpy", encrypt, copy, kNoBound);
    compare("decryptData 4 KB, all three flags", "memcpy", decrypt, copy, kNoBound);
}

void compareScalar() {
    for (const std::size_t size : {kPage, kLarge}) {
        for (const bool encrypting : {true, false}) {
            compareChain(aes128Portable(), encrypting, size, "EVP update, features masked", 1.33);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const bool isScalar = std::getenv("OPENSSL_ia32cap") != nullptr;
    checkAes(aes128Portable());
    if (isScalar) {
        compareScalar();
    } else {
        checkAes(aes128());
        checkIntegrity();
        compareAes();
        compareIntegrity();
        compareMessages();
    }
    return runInTurns(argc, argv, targets());
}
