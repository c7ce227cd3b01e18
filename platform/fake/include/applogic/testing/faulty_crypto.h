#pragma once

#include <memory>

#include "applogic/platform/crypto.h"

namespace applogic::testing {

class FaultPlan;

/// A `Crypto` that passes every call to another one, asking a `FaultPlan` first ("crypto.sha256",
/// "crypto.verify"): a call the plan fails reports failure (no digest; not verified). Thread-safe
/// when the inner one is.
class FaultyCrypto final : public platform::Crypto {
 public:
  FaultyCrypto(std::shared_ptr<const platform::Crypto> inner, std::shared_ptr<FaultPlan> plan)
      : inner_(std::move(inner)), plan_(std::move(plan)) {}

  std::optional<Sha256Digest> sha256(std::span<const std::uint8_t> bytes) const override;
  bool verifyRsaSha256Signature(std::span<const std::uint8_t> publicKey, const Sha256Digest& digest,
                                std::span<const std::uint8_t> signature) const override;

 private:
  std::shared_ptr<const platform::Crypto> inner_;
  std::shared_ptr<FaultPlan> plan_;
};

}  // namespace applogic::testing
