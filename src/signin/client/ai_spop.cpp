#include "applogic/signin/client/ai_spop.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "applogic/signin/client/ai_utils.h"

namespace applogic::signin {
namespace {

struct SharedSlot {
  std::mutex mutex;
  std::shared_ptr<AISPOP> instance;
};

SharedSlot& sharedSlot() {
  static SharedSlot slot;
  return slot;
}

}  // namespace

AISPOP::AISPOP(std::shared_ptr<const platform::SecureRandom> random, std::shared_ptr<const platform::Crypto> crypto)
    : random_(std::move(random)), crypto_(std::move(crypto)), spopMethod_("S256") {
  regenerateSpop();
}

std::shared_ptr<AISPOP> AISPOP::spop(const std::shared_ptr<const platform::SecureRandom>& random,
                                     const std::shared_ptr<const platform::Crypto>& crypto) {
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  if (!slot.instance || !slot.instance->spopKey()) slot.instance = std::make_shared<AISPOP>(random, crypto);
  return slot.instance;
}

void AISPOP::resetSharedInstance() {
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  slot.instance.reset();
}

void AISPOP::regenerateSpop() {
  spopKey_ = generate32BytesKey();
  // Without a verifier there is nothing to prove; a challenge of it would pair with no key.
  spopChallenge_ = spopKey_ ? getSHA256HashStringFrom(*spopKey_) : std::nullopt;
}

void AISPOP::generateWithChallenge(std::optional<std::string> challenge, std::optional<std::string> challengeMethod) {
  spopKey_.reset();
  spopChallenge_ = std::move(challenge);
  spopMethod_ = std::move(challengeMethod);
}

std::optional<std::string> AISPOP::generate32BytesKey() const {
  std::array<std::uint8_t, 32> bytes{};
  if (!random_ || !random_->fill(bytes)) return std::nullopt;
  return AIUtils::base64URLEncode(bytes);
}

std::optional<std::string> AISPOP::getSHA256HashStringFrom(std::string_view text) const {
  // Text that is not ASCII has no ASCII bytes to hash.
  if (!crypto_ || std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7f; })) {
    return std::nullopt;
  }
  const auto digest = crypto_->sha256(
      std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  if (!digest) return std::nullopt;
  return AIUtils::base64URLEncode(*digest);
}

}  // namespace applogic::signin
