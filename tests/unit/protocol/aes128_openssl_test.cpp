#include "protocol/aes128.h"

#include "support/protocol/aes128_fixture.h"
#include "support/protocol/protection_support.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <memory>

using namespace support;

namespace {

struct FreeCipher {
    void operator()(EVP_CIPHER_CTX* cipher) const { EVP_CIPHER_CTX_free(cipher); }
};

/// One direction of a chain in OpenSSL; like ours it goes on from call to call.
class PeerChain {
public:
    PeerChain(const Bytes& key, const Bytes& iv, bool encrypting) {
        const int direction = encrypting ? 1 : 0;
        EXPECT_EQ(
            EVP_CipherInit_ex(mCipher.get(), EVP_aes_128_cbc(), nullptr, key.data(), iv.data(), direction),
            1);
        EXPECT_EQ(EVP_CIPHER_CTX_set_padding(mCipher.get(), 0), 1);
    }

    Bytes run(const Bytes& in) {
        Bytes out(in.size() + kAesBlockSize);
        int written = 0;
        EXPECT_EQ(
            EVP_CipherUpdate(mCipher.get(), out.data(), &written, in.data(), static_cast<int>(in.size())), 1);
        out.resize(static_cast<std::size_t>(written));
        return out;
    }

private:
    std::unique_ptr<EVP_CIPHER_CTX, FreeCipher> mCipher{EVP_CIPHER_CTX_new()};
};

using Aes128PeerTest = EachAes128;

TEST_P(Aes128PeerTest, ChainsOfRandomMessagesAreThoseOfOpenSsl) {
    std::mt19937 random(7);
    for (int chain = 0; chain < 200; ++chain) {
        const Bytes key = randomBytes(random, kAesBlockSize);
        const Bytes iv = randomBytes(random, kAesBlockSize);
        Aes128State encryption;
        Aes128State decryption;
        mCode->expandForEncryption(key.data(), encryption);
        mCode->expandForDecryption(key.data(), decryption);
        std::memcpy(encryption.iv, iv.data(), kAesBlockSize);
        std::memcpy(decryption.iv, iv.data(), kAesBlockSize);
        PeerChain peerEncryption(key, iv, true);
        PeerChain peerDecryption(key, iv, false);
        for (int message = 0; message < 20; ++message) {
            const std::size_t blocks = random() % (message == 0 ? 300 : 30);
            const Bytes plain = randomBytes(random, blocks * kAesBlockSize);
            Bytes encrypted(plain.size());
            mCode->cbcEncrypt(encryption, plain.data(), encrypted.data(), blocks);
            ASSERT_EQ(encrypted, peerEncryption.run(plain));
            Bytes decrypted(plain.size());
            mCode->cbcDecrypt(decryption, encrypted.data(), decrypted.data(), blocks);
            ASSERT_EQ(decrypted, plain);
            ASSERT_EQ(peerDecryption.run(encrypted), plain);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codes, Aes128PeerTest, testing::Values(false, true),
                         [](const auto& code) { return code.param ? "Instructions" : "Portable"; });

TEST(SafetyDataDealPeerTest, EncryptedPayloadsOfAnyLengthAreOneOpenSslChain) {
    std::mt19937 random(8);
    const Bytes key(kTestKey.begin(), kTestKey.end());
    const Bytes iv(kNearIv.begin(), kNearIv.end());
    const auto context = nearContext({true, true, true});
    PeerChain peer(key, iv, true);
    constexpr std::size_t kHeaderSize = 9;
    for (int message = 0; message < 2000; ++message) {
        Bytes payload = randomBytes(random, random() % 1000);
        const Outcome sent = encrypt(*context, payload);
        ASSERT_TRUE(sent.ok);
        payload.resize((payload.size() / kAesBlockSize + 1) * kAesBlockSize);
        ASSERT_EQ(Bytes(sent.data.begin() + kHeaderSize, sent.data.end()), peer.run(payload));
    }
}

TEST(SafetyDataDealPeerTest, MessagesWhoseDataOpenSslEncryptedAreTakenApart) {
    std::mt19937 random(9);
    const Bytes key(kTestKey.begin(), kTestKey.end());
    const Bytes iv(kNearIv.begin(), kNearIv.end());
    const auto context = farContext({});
    PeerChain peer(key, iv, true);
    for (int message = 0; message < 2000; ++message) {
        const Bytes payload = randomBytes(random, random() % 60 * kAesBlockSize);
        Bytes received = fromHex("0002 01 80");
        for (const std::uint8_t byte : peer.run(payload)) {
            received.push_back(byte);
        }
        const Outcome taken = decrypt(*context, received);
        ASSERT_TRUE(taken.ok);
        ASSERT_EQ(taken.data, payload);
    }
}

} // namespace
