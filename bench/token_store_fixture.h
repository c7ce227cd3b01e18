#pragma once

// A SQLite secure store in a scratch directory holding a valid access token, as the sign-in
// benchmarks read it.

#include <stdlib.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "applogic/platform/clock.h"
#include "applogic/platform/sqlite_secure_store.h"
#include "applogic/signin/client/ai_token_manager.h"

namespace applogic::bench {

class FixedClock final : public platform::Clock {
 public:
  TimePoint now() const override { return TimePoint(std::chrono::seconds(1'700'000'000)); }
};

class TokenStoreFixture {
 public:
  TokenStoreFixture() {
    signin::AIError error;
    manager.saveTokenToStorage(signin::AIAccessToken("Atza|" + std::string(380, 'x'), {"profile"},
                                                     clock->now() + std::chrono::hours(1), *clock),
                               signin::kTokenTypeAccessToken, error);
    if (error.hasErrorOccured()) std::abort();
  }
  ~TokenStoreFixture() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }
  TokenStoreFixture(const TokenStoreFixture&) = delete;
  TokenStoreFixture& operator=(const TokenStoreFixture&) = delete;

  /// Reads the access token through the manager and stops the program unless it is valid.
  void readValidAccessToken() const {
    signin::AIError error;
    const auto token = manager.getTokenFromStorage(signin::kTokenTypeAccessToken, error);
    const auto* access = dynamic_cast<const signin::AIAccessToken*>(token.get());
    if (access == nullptr || !access->isValidForScopes({"profile"}, *clock)) std::abort();
  }

  std::filesystem::path directory = makeScratchDirectory();
  std::shared_ptr<FixedClock> clock = std::make_shared<FixedClock>();
  std::shared_ptr<platform::SecureStore> store = platform::makeSqliteSecureStore(directory / "store.sqlite3");
  signin::AITokenManager manager{signin::AIDataStorageFactory(store)};

 private:
  static std::filesystem::path makeScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "applogic-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    return pattern;
  }
};

}  // namespace applogic::bench
