#pragma once

#include <memory>

#include "applogic/platform/crypto.h"

namespace applogic::platform {

/// `SecureRandom` over OpenSSL's `RAND_bytes` (seeded by the operating system).
std::shared_ptr<const SecureRandom> makeOpenSslSecureRandom();

/// `Crypto` over OpenSSL 3's EVP interface.
std::shared_ptr<const Crypto> makeOpenSslCrypto();

}  // namespace applogic::platform
