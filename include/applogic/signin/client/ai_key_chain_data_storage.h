#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/secure_store.h"
#include "applogic/signin/client/ai_error.h"
#include "applogic/signin/client/ai_token.h"

namespace applogic::signin {

/// Exception names of the storage failures (`AIStorageException::name()`).
inline constexpr std::string_view kAIStorageUpdateFailure = "Error while updating the Data in the storage";
inline constexpr std::string_view kAIStorageAddFailure = "Error while adding a new Item";
inline constexpr std::string_view kAIStorageRetrieveFailure = "Error while retrieving a key chain Item";
inline constexpr std::string_view kAIStorageDeleteFailure = "Error while deleting the item from the key chain";

/// The tokens' storage: one generic-password item per token type in a `SecureStore`, identified
/// by the service "1" to "4" (the type as a number), readable after first unlock, holding the
/// archived token.
///
/// Internal to the sign-in client. A failure writes code 5 (`kAIDeviceError`) with the status
/// message of `getErrorString` into the error object and then throws `AIStorageException`, named
/// after the operation; `AITokenManager` and the client's entry points catch it, nothing else
/// sees it. Status -25300 (not found) is no failure when reading or deleting.
///
/// Thread contract: main thread (as the whole client); the store itself is thread-safe.
class APPLOGIC_EXPORT AIKeyChainDataStorage {
 public:
  explicit AIKeyChainDataStorage(std::shared_ptr<platform::SecureStore> store);

  /// Writes `token` to the item of `token.getKey()`. An existing item is replaced only when
  /// `override` is true (otherwise nothing is written and nothing reported); an absent one is
  /// added. A lookup failing with another status than -25300 writes nothing and reports nothing.
  /// Throws `AIStorageException` when the update or the add fails.
  void storeData(const AIToken& token, bool override, AIError& error);
  /// The data of the item of `type`; absent when there is none. Throws `AIStorageException` on
  /// any other failure.
  std::optional<std::vector<std::uint8_t>> retrieveData(std::int32_t type, AIError& error);
  /// Deletes the item of `type`; no item is fine. Throws `AIStorageException` on failure.
  void deleteData(std::int32_t type, AIError& error);

  /// The query of a type's item: class generic password, service = the type as a number.
  static platform::SecureItem getKeyChainItemQuery(std::int32_t type);

  platform::SecureStoreStatus callSecItemCopyMatching(const platform::SecureItem& query, platform::SecureItemReturn what,
                                                      platform::SecureItem* result);
  platform::SecureStoreStatus callSecItemAdd(const platform::SecureItem& attributes);
  platform::SecureStoreStatus callSecItemUpdate(const platform::SecureItem& query,
                                                const platform::SecureItem& attributesToUpdate);
  platform::SecureStoreStatus callSecItemDelete(const platform::SecureItem& query);

  /// The bytes as a string (UTF-8, unchecked).
  static std::string convertToString(std::span<const std::uint8_t> data);
  /// The message of a keychain status ("Unknown Error Code." for a status without one).
  static std::string_view getErrorString(platform::SecureStoreStatus status);

 private:
  [[noreturn]] static void fail(platform::SecureStoreStatus status, std::string_view name, AIError& error);

  std::shared_ptr<platform::SecureStore> store_;
};

/// Makes the tokens' storage over one `SecureStore`.
///
/// Thread contract: any thread; the storage objects it makes are main-thread objects.
class APPLOGIC_EXPORT AIDataStorageFactory {
 public:
  /// `store` may be null: the platform has no secure storage.
  explicit AIDataStorageFactory(std::shared_ptr<platform::SecureStore> store) : store_(std::move(store)) {}

  /// A new `AIKeyChainDataStorage`, or null when there is no store.
  std::unique_ptr<AIKeyChainDataStorage> getDataStorage() const;

 private:
  std::shared_ptr<platform::SecureStore> store_;
};

}  // namespace applogic::signin
