#include "applogic/platform/openssl_crypto.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <climits>

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
    Sha256Digest digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
        length != digest.size()) {
      return std::nullopt;
    }
    return digest;
  }
};

}  // namespace

std::shared_ptr<const SecureRandom> makeOpenSslSecureRandom() { return std::make_shared<OpenSslSecureRandom>(); }

std::shared_ptr<const Crypto> makeOpenSslCrypto() { return std::make_shared<OpenSslCrypto>(); }

}  // namespace applogic::platform
