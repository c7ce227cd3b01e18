#pragma once

#include <cstdint>
#include <memory>

#include "applogic/export.h"
#include "applogic/signin/client/ai_error.h"
#include "applogic/signin/client/ai_key_chain_data_storage.h"
#include "applogic/signin/client/ai_token.h"

namespace applogic::signin {

/// The only door to the stored tokens: reads, saves and deletes them by type.
///
/// Never throws: storage failures leave code 5 and the keychain status message in the call's
/// error object (reads then yield no token). A stored item that does not unarchive is deleted on
/// the first read, which yields no token and no error.
///
/// Thread contract: main thread (as the whole client).
class APPLOGIC_EXPORT AITokenManager {
 public:
  explicit AITokenManager(AIDataStorageFactory factory) : factory_(std::move(factory)) {}

  /// The storage; null with code 5 "Unable to initialize storage." when there is none.
  std::unique_ptr<AIKeyChainDataStorage> getTokenStorage(AIError& error) const;
  /// The stored token of `type`, of the class that stored it; null when there is no storage, no
  /// item, or the item is unreadable (then it is deleted).
  std::unique_ptr<AIToken> getTokenFromStorage(std::int32_t type, AIError& error) const;
  /// Stores `token` under its own type (`token.getKey()`), replacing an existing item. `type`
  /// names the kind the caller means to store and is not otherwise used.
  void saveTokenToStorage(const AIToken& token, std::int32_t type, AIError& error) const;
  /// Deletes the item of `type`; no item is fine.
  void deleteTokenFromStorageOfType(std::int32_t type, AIError& error) const;
  /// Deletes the item of `type` and those depending on it, along the chain code (3), refresh
  /// token (1), profile (4), access token (2): 3 deletes 3, 1, 4, 2; 1 deletes 1, 4, 2; 4 deletes
  /// 4, 2; 2 deletes 2. Other types do nothing.
  void deleteAlldependentTokenFromStorageToType(std::int32_t type, AIError& error) const;

 private:
  AIDataStorageFactory factory_;
};

}  // namespace applogic::signin
