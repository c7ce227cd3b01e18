#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"

namespace applogic::platform {

/// Result of a `SecureStore` call: 0 for success, otherwise one of the keychain status codes
/// below (the numbers of the platform keychain, so that the sign-in client can report them).
using SecureStoreStatus = std::int32_t;

namespace secure_store_status {
inline constexpr SecureStoreStatus kSuccess = 0;
inline constexpr SecureStoreStatus kUnimplemented = -4;
inline constexpr SecureStoreStatus kParam = -50;
inline constexpr SecureStoreStatus kAllocate = -108;
inline constexpr SecureStoreStatus kNotAvailable = -25291;
inline constexpr SecureStoreStatus kAuthFailed = -25293;
inline constexpr SecureStoreStatus kDuplicateItem = -25299;
inline constexpr SecureStoreStatus kItemNotFound = -25300;
inline constexpr SecureStoreStatus kInteractionNotAllowed = -25308;
inline constexpr SecureStoreStatus kDecode = -26275;
}  // namespace secure_store_status

/// The class of a stored item. Only generic passwords exist so far.
enum class SecureItemClass { genericPassword };

/// When an item may be read. The desktop has no lock state of its own, so stores keep the value
/// and report it back without enforcing it.
enum class SecureItemAccessible { afterFirstUnlock, whenUnlocked };

/// An item's attributes, or a query over them. In a query every present attribute must match
/// (`data` may not appear in a query); an item is identified by its class and service.
struct APPLOGIC_EXPORT SecureItem {
  std::optional<SecureItemClass> itemClass;
  std::optional<std::string> service;
  std::optional<SecureItemAccessible> accessible;
  std::optional<std::vector<std::uint8_t>> data;

  friend bool operator==(const SecureItem&, const SecureItem&) = default;
};

/// What `copyMatching` hands back for the item found.
enum class SecureItemReturn {
  attributes,  ///< class, service and accessibility, without the data
  data,        ///< the data only
};

/// Keychain-like storage of small secrets, one item per (class, service).
///
/// The four calls mirror the platform keychain: a call either succeeds (0) or changes nothing and
/// returns a status. Each call is atomic, also with other processes using the same store.
/// Statuses common to every call: `kParam` for a malformed query or attributes, `kNotAvailable`
/// or another non-zero status when the store itself fails.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class APPLOGIC_EXPORT SecureStore {
 public:
  virtual ~SecureStore() = default;

  /// Finds the first item (in the order of insertion) matching `query` and writes what `what`
  /// asks for into `result` (may be null). `kItemNotFound` when none matches.
  virtual SecureStoreStatus copyMatching(const SecureItem& query, SecureItemReturn what, SecureItem* result) = 0;
  /// Adds an item. `itemClass` and `service` are required (`kParam`); absent data stores empty
  /// data. `kDuplicateItem` when an item of that class and service exists.
  virtual SecureStoreStatus add(const SecureItem& attributes) = 0;
  /// Changes every item matching `query` to the present members of `attributesToUpdate`, which
  /// may not hold `itemClass` (`kParam`). `kItemNotFound` when none matches; `kDuplicateItem`
  /// when a new service would collide with another item.
  virtual SecureStoreStatus update(const SecureItem& query, const SecureItem& attributesToUpdate) = 0;
  /// Deletes every item matching `query`; `kItemNotFound` when none matches.
  virtual SecureStoreStatus remove(const SecureItem& query) = 0;
};

}  // namespace applogic::platform
