#include "applogic/platform/openssl_crypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <climits>
#include <memory>

namespace applogic::platform {
namespace {

class OpenSslSecureRandom final : public SecureRandom {
 public:
  bool fill(std::span<std::uint8_t> bytes) const override {
    // RAND_bytes takes an int count; larger requests are filled in slices.
    while (!bytes.empty()) {
      const std::size_t slice = std::min<std::size_t>(bytes.size(), INT_MAX);
      if (RAND_bytes(bytes.data(), static_cast<int>(slice)) != 1) return false;
      bytes = bytes.subspan(slice);
    }
    return true;
  }
};

class OpenSslCrypto final : public Crypto {
 public:
  std::optional<Sha256Digest> sha256(std::span<const std::uint8_t> bytes) const override {
    // SHA-256 always gives 32 bytes, the size of the digest: no length to look at.
    Sha256Digest digest{};
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) return std::nullopt;
    return digest;
  }

  bool verifyRsaSha256Signature(std::span<const std::uint8_t> publicKey, const Sha256Digest& digest,
                                std::span<const std::uint8_t> signature) const override {
    const bool verified = verify(publicKey, digest, signature);
    // A failed import or verification leaves reasons on this thread's error queue; nobody reads
    // them, and they must not surface in an unrelated later OpenSSL call.
    if (!verified) ERR_clear_error();
    return verified;
  }

 private:
  // The length of the DER element at the start of `der` (header and contents), or 0 when its
  // header does not fit the data (the decoder refuses 0 bytes). Key data may carry trailing
  // bytes; only the element itself is handed to the decoder. The indefinite length (0x80, not
  // DER) reads as a long form without length bytes: an element with no contents, never a key.
  static std::size_t derElementLength(std::span<const std::uint8_t> der) {
    if (der.size() < 2) return 0;
    std::size_t header = 2;
    std::size_t length = der[1];
    if (length & 0x80) {
      const std::size_t count = length & 0x7f;
      if (count > sizeof(std::uint32_t) || der.size() < 2 + count) return 0;
      length = 0;
      for (std::size_t i = 0; i < count; ++i) length = (length << 8) | der[2 + i];
      header += count;
    }
    return length <= der.size() - header ? header + length : 0;
  }

  static bool verify(std::span<const std::uint8_t> publicKey, const Sha256Digest& digest,
                     std::span<const std::uint8_t> signature) {
    if (signature.empty()) return false;
    const unsigned char* cursor = publicKey.data();
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        d2i_PublicKey(EVP_PKEY_RSA, nullptr, &cursor, static_cast<long>(derElementLength(publicKey))), &EVP_PKEY_free);
    if (!key) return false;
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                        &EVP_PKEY_CTX_free);
    return context && EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
  }
};

}  // namespace

std::shared_ptr<const SecureRandom> makeOpenSslSecureRandom() { return std::make_shared<OpenSslSecureRandom>(); }

std::shared_ptr<const Crypto> makeOpenSslCrypto() { return std::make_shared<OpenSslCrypto>(); }

}  // namespace applogic::platform
