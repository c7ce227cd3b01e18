#pragma once

#include <memory>

#include "applogic/export.h"
#include "applogic/platform/platform.h"
#include "applogic/signin/client/ai_spop.h"
#include "applogic/signin/client/ai_token_manager.h"
#include "applogic/signin/client/ai_utils.h"
#include "applogic/signin/client/client_configuration.h"

namespace applogic::signin {

/// What the sign-in client's requests and exchanges are built over: the platform services, the
/// client's configuration and the `AIUtils` made from both. Shared by `std::shared_ptr` between
/// the requests and the exchangers.
///
/// Thread contract: immutable after construction; the services keep their own contracts.
class APPLOGIC_EXPORT AIClientServices {
 public:
  AIClientServices(platform::Platform platform, ClientConfiguration configuration)
      : platform_(std::move(platform)), utils_(platform_, std::move(configuration)) {}

  const platform::Platform& platform() const noexcept { return platform_; }
  const AIUtils& utils() const noexcept { return utils_; }
  const ClientConfiguration& configuration() const noexcept { return utils_.apiKeyHelper().configuration(); }
  /// The token manager over the platform's secure store.
  AITokenManager tokenManager() const { return AITokenManager(AIDataStorageFactory(platform_.secureStore)); }
  /// The shared proof key (`AISPOP::spop`) over the platform's random source and crypto.
  std::shared_ptr<AISPOP> spop() const { return AISPOP::spop(platform_.secureRandom, platform_.crypto); }

 private:
  platform::Platform platform_;
  AIUtils utils_;
};

}  // namespace applogic::signin
