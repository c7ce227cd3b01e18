#pragma once

#include <memory>

#include "applogic/export.h"
#include "applogic/platform/crypto.h"

namespace applogic::platform {

/// `SecureRandom` over OpenSSL's `RAND_bytes` (seeded by the operating system).
APPLOGIC_EXPORT std::shared_ptr<const SecureRandom> makeOpenSslSecureRandom();

/// `Crypto` over OpenSSL 3's EVP interface.
APPLOGIC_EXPORT std::shared_ptr<const Crypto> makeOpenSslCrypto();

}  // namespace applogic::platform
