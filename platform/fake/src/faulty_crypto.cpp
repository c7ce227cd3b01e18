#include "applogic/testing/faulty_crypto.h"

#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

std::optional<platform::Crypto::Sha256Digest> FaultyCrypto::sha256(std::span<const std::uint8_t> bytes) const {
  if (plan_ && plan_->fails("crypto.sha256")) return std::nullopt;
  return inner_->sha256(bytes);
}

bool FaultyCrypto::verifyRsaSha256Signature(std::span<const std::uint8_t> publicKey, const Sha256Digest& digest,
                                            std::span<const std::uint8_t> signature) const {
  if (plan_ && plan_->fails("crypto.verify")) return false;
  return inner_->verifyRsaSha256Signature(publicKey, digest, signature);
}

}  // namespace applogic::testing
