// The OpenSSL ports (random bytes, SHA-256, RSA signatures) and the POSIX file reader.
#define OPENSSL_SUPPRESS_DEPRECATED  // a failing generator is put in with RAND_set_rand_method
#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/posix_file.h"

namespace applogic {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Sha256Digest = platform::Crypto::Sha256Digest;

TEST(OpenSslSecureRandom, FillsEveryByteOfARequestOrAnswersFalse) {
  const auto random = platform::makeOpenSslSecureRandom();
  Bytes bytes(4096, 0);
  ASSERT_TRUE(random->fill(bytes));
  // 4096 random bytes hold about 16 zeros; a fill that skipped a part would leave thousands.
  EXPECT_LT(std::count(bytes.begin(), bytes.end(), 0), 200);
  EXPECT_TRUE(random->fill(std::span<std::uint8_t>()));
  RAND_METHOD failing{};
  failing.bytes = [](unsigned char*, int) { return 0; };
  const RAND_METHOD* openssl = RAND_get_rand_method();
  RAND_set_rand_method(&failing);
  EXPECT_FALSE(random->fill(bytes));  // when the generator fails
  RAND_set_rand_method(openssl);
}

TEST(OpenSslCrypto, Sha256OfAKnownText) {
  const auto digest = platform::makeOpenSslCrypto()->sha256(Bytes{'a', 'b', 'c'});
  ASSERT_TRUE(digest);
  const Sha256Digest expected{0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                              0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                              0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
  EXPECT_EQ(*digest, expected);
}

struct KeyPair {
  Bytes publicKey;  // PKCS#1 RSAPublicKey, DER
  Bytes signature;  // of kDigest
};

const Sha256Digest kDigest{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};

KeyPair makeKeyPair(unsigned bits) {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(bits), &EVP_PKEY_free);
  EXPECT_TRUE(key);
  KeyPair pair;
  unsigned char* der = nullptr;
  const int length = i2d_PublicKey(key.get(), &der);
  EXPECT_GT(length, 0);
  pair.publicKey.assign(der, der + length);
  OPENSSL_free(der);
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                      &EVP_PKEY_CTX_free);
  std::size_t size = 0;
  EXPECT_TRUE(EVP_PKEY_sign_init(context.get()) == 1 &&
              EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
              EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1 &&
              EVP_PKEY_sign(context.get(), nullptr, &size, kDigest.data(), kDigest.size()) == 1);
  pair.signature.resize(size);
  EXPECT_EQ(EVP_PKEY_sign(context.get(), pair.signature.data(), &size, kDigest.data(), kDigest.size()), 1);
  pair.signature.resize(size);
  return pair;
}

// The key's element again, its length written in `count` bytes (more than DER's fewest).
Bytes withLengthIn(const Bytes& key, std::size_t count) {
  const std::size_t header = key.at(1) < 0x80 ? 2 : 2 + (key[1] - 0x80);
  const std::size_t length = key.size() - header;
  Bytes out{key[0], static_cast<std::uint8_t>(0x80 + count)};
  for (std::size_t i = count; i-- > 0;) out.push_back(static_cast<std::uint8_t>(i < sizeof length ? length >> (8 * i) : 0));
  out.insert(out.end(), key.begin() + static_cast<std::ptrdiff_t>(header), key.end());
  return out;
}

// The key is one DER element, read from the start of the key data: its length is in the short
// form for a small key and in the long form for a usual one; bytes after it are not the key's.
TEST(OpenSslCrypto, VerifiesASignatureOnlyWithItsKeyAndItsDigest) {
  const auto crypto = platform::makeOpenSslCrypto();
  for (const unsigned bits : {512u, 2048u}) {
    SCOPED_TRACE(bits);
    const KeyPair pair = makeKeyPair(bits);
    ASSERT_EQ(pair.publicKey.at(1) > 0x80, bits == 2048);
    Bytes trailing = pair.publicKey;
    trailing.push_back(0x00);
    const Bytes truncated(pair.publicKey.begin(), pair.publicKey.end() - 1);
    Sha256Digest otherDigest = kDigest;
    otherDigest[0] ^= 1;
    struct Row {
      const char* name;
      Bytes key;
      Sha256Digest digest;
      Bytes signature;
      bool verified;
    };
    const Row rows[] = {
        {"its key", pair.publicKey, kDigest, pair.signature, true},
        {"its key with bytes after it", trailing, kDigest, pair.signature, true},
        {"its key cut short", truncated, kDigest, pair.signature, false},
        {"another digest", pair.publicKey, otherDigest, pair.signature, false},
        {"no signature", pair.publicKey, kDigest, {}, false},
        {"its key's length in four bytes", withLengthIn(pair.publicKey, 4), kDigest, pair.signature, true},
        {"its key's length in five bytes", withLengthIn(pair.publicKey, 5), kDigest, pair.signature, false},
    };
    for (const Row& row : rows) {
      EXPECT_EQ(crypto->verifyRsaSha256Signature(row.key, row.digest, row.signature), row.verified) << row.name;
      // A refusal leaves nothing on the thread's OpenSSL error queue.
      EXPECT_EQ(ERR_peek_error(), 0u) << row.name;
    }
  }
}

// Reads whole files of any size, and says why it cannot with the error number. With standard
// input closed, each file opens as descriptor 0: it is read like any other, and closed.
TEST(ReadWholeFile, ReadsAnyLengthAndAnswersTheErrorNumberOtherwise) {
  const std::string dir = ::testing::TempDir() + "read_whole_file/";
  std::filesystem::create_directories(dir);
  ASSERT_EQ(::close(0), 0);
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{200000}}) {
    std::string content(size, 'x');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>('a' + i % 26);
    const std::string path = dir + std::to_string(size);
    std::ofstream(path, std::ios::binary) << content;
    const auto read = platform::readWholeFile(path);
    EXPECT_EQ(read.bytes, content) << size;
    EXPECT_EQ(read.error, 0) << size;
  }
  struct Row {
    std::string path;
    int error;
  };
  // /proc/self/mem opens and is a regular file, but nothing is mapped at its offset 0.
  for (const Row& row : {Row{dir + "missing", ENOENT}, Row{dir, EISDIR}, Row{"/proc/self/mem", EIO}}) {
    const auto read = platform::readWholeFile(row.path);
    EXPECT_EQ(read.bytes, std::nullopt) << row.path;
    EXPECT_EQ(read.error, row.error) << row.path;
  }
  const int next = ::open("/dev/null", O_RDONLY);
  EXPECT_EQ(next, 0);
  if (next >= 0) ::close(next);
}

}  // namespace
}  // namespace applogic
