#include "applogic/signin/client/ai_token_manager.h"

#include <algorithm>
#include <array>

#include "applogic/signin/client/ai_exception.h"

namespace applogic::signin {
namespace {

constexpr std::array<std::int32_t, 4> kDependencyChain{kTokenTypeCode, kTokenTypeRefreshToken, kTokenTypeProfileData,
                                                       kTokenTypeAccessToken};

}  // namespace

std::unique_ptr<AIKeyChainDataStorage> AITokenManager::getTokenStorage(AIError& error) const {
  auto storage = factory_.getDataStorage();
  if (!storage) error.setError(kAIDeviceError, std::string(kAIMessageStorageInitializationError));
  return storage;
}

std::unique_ptr<AIToken> AITokenManager::getTokenFromStorage(std::int32_t type, AIError& error) const {
  const auto storage = getTokenStorage(error);
  if (!storage) return nullptr;
  try {
    const auto data = storage->retrieveData(type, error);
    if (!data) return nullptr;
    if (auto token = AIToken::unarchiveFromNSData(*data)) return token;
  } catch (const AIException&) {
    // Falls through to the delete: whatever cannot be read now would fail every later read too.
  }
  deleteTokenFromStorageOfType(type, error);
  return nullptr;
}

void AITokenManager::saveTokenToStorage(const AIToken& token, std::int32_t /*type*/, AIError& error) const {
  const auto storage = getTokenStorage(error);
  if (!storage) return;
  try {
    storage->storeData(token, true, error);
  } catch (const AIException&) {
    // The storage has written the code and message into `error`; that is the whole report.
  }
}

void AITokenManager::deleteTokenFromStorageOfType(std::int32_t type, AIError& error) const {
  const auto storage = getTokenStorage(error);
  if (!storage) return;
  try {
    storage->deleteData(type, error);
  } catch (const AIException&) {
    // As for saving: the error object carries the failure.
  }
}

void AITokenManager::deleteAlldependentTokenFromStorageToType(std::int32_t type, AIError& error) const {
  const auto first = std::find(kDependencyChain.begin(), kDependencyChain.end(), type);
  for (auto it = first; it != kDependencyChain.end(); ++it) deleteTokenFromStorageOfType(*it, error);
}

}  // namespace applogic::signin
