#include "applogic/signin/client/ai_key_chain_data_storage.h"

#include <algorithm>
#include <array>

#include "applogic/signin/client/ai_exception.h"

namespace applogic::signin {
namespace {

namespace status = platform::secure_store_status;
using platform::SecureItem;

struct StatusRow {
  platform::SecureStoreStatus status;
  std::string_view message;
};

constexpr std::array<StatusRow, 9> kStatusMessages{{
    {status::kUnimplemented, "Function or operation not implemented."},
    {status::kParam, "One or more parameters passed to the function were not valid."},
    {status::kAllocate, "Failed to allocate memory."},
    {status::kNotAvailable, "No trust results are available."},
    {status::kAuthFailed, "Authorization/Authentication failed."},
    {status::kDuplicateItem, "The item already exists."},
    {status::kItemNotFound, "The item cannot be found."},
    {status::kInteractionNotAllowed, "Interaction with the Security Server is not allowed."},
    {status::kDecode, "Unable to decode the provided data."},
}};

}  // namespace

AIKeyChainDataStorage::AIKeyChainDataStorage(std::shared_ptr<platform::SecureStore> store) : store_(std::move(store)) {}

void AIKeyChainDataStorage::storeData(const AIToken& token, bool override, AIError& error) {
  const SecureItem query = getKeyChainItemQuery(token.getKey());
  SecureItem toWrite;
  toWrite.accessible = platform::SecureItemAccessible::afterFirstUnlock;
  toWrite.service = query.service;
  toWrite.data = token.getValue();

  SecureItem found;
  const auto lookedUp = callSecItemCopyMatching(query, platform::SecureItemReturn::attributes, &found);
  if (lookedUp == status::kSuccess && override) {
    found.itemClass = platform::SecureItemClass::genericPassword;
    if (const auto updated = callSecItemUpdate(found, toWrite); updated != status::kSuccess) {
      fail(updated, kAIStorageUpdateFailure, error);
    }
  } else if (lookedUp == status::kItemNotFound) {
    toWrite.itemClass = platform::SecureItemClass::genericPassword;
    if (const auto added = callSecItemAdd(toWrite); added != status::kSuccess) {
      fail(added, kAIStorageAddFailure, error);
    }
  }
}

std::optional<std::vector<std::uint8_t>> AIKeyChainDataStorage::retrieveData(std::int32_t type, AIError& error) {
  SecureItem found;
  const auto lookedUp = callSecItemCopyMatching(getKeyChainItemQuery(type), platform::SecureItemReturn::data, &found);
  if (lookedUp == status::kItemNotFound) return std::nullopt;
  if (lookedUp != status::kSuccess) fail(lookedUp, kAIStorageRetrieveFailure, error);
  return found.data.value_or(std::vector<std::uint8_t>{});
}

void AIKeyChainDataStorage::deleteData(std::int32_t type, AIError& error) {
  const auto deleted = callSecItemDelete(getKeyChainItemQuery(type));
  if (deleted != status::kSuccess && deleted != status::kItemNotFound) fail(deleted, kAIStorageDeleteFailure, error);
}

SecureItem AIKeyChainDataStorage::getKeyChainItemQuery(std::int32_t type) {
  SecureItem query;
  query.itemClass = platform::SecureItemClass::genericPassword;
  query.service = std::to_string(type);
  return query;
}

platform::SecureStoreStatus AIKeyChainDataStorage::callSecItemCopyMatching(const SecureItem& query,
                                                                           platform::SecureItemReturn what,
                                                                           SecureItem* result) {
  return store_->copyMatching(query, what, result);
}

platform::SecureStoreStatus AIKeyChainDataStorage::callSecItemAdd(const SecureItem& attributes) {
  return store_->add(attributes);
}

platform::SecureStoreStatus AIKeyChainDataStorage::callSecItemUpdate(const SecureItem& query,
                                                                     const SecureItem& attributesToUpdate) {
  return store_->update(query, attributesToUpdate);
}

platform::SecureStoreStatus AIKeyChainDataStorage::callSecItemDelete(const SecureItem& query) {
  return store_->remove(query);
}

std::string AIKeyChainDataStorage::convertToString(std::span<const std::uint8_t> data) {
  return std::string(data.begin(), data.end());
}

std::string_view AIKeyChainDataStorage::getErrorString(platform::SecureStoreStatus code) {
  const auto row = std::find_if(kStatusMessages.begin(), kStatusMessages.end(),
                                [&](const StatusRow& r) { return r.status == code; });
  return row == kStatusMessages.end() ? std::string_view("Unknown Error Code.") : row->message;
}

void AIKeyChainDataStorage::fail(platform::SecureStoreStatus code, std::string_view name, AIError& error) {
  error.setError(kAIDeviceError, std::string(getErrorString(code)));
  throw AIStorageException(std::string(name));
}

std::unique_ptr<AIKeyChainDataStorage> AIDataStorageFactory::getDataStorage() const {
  if (!store_) return nullptr;
  return std::make_unique<AIKeyChainDataStorage>(store_);
}

}  // namespace applogic::signin
