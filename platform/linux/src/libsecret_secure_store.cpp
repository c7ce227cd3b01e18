#include "applogic/platform/libsecret_secure_store.h"

#include <libsecret/secret.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "secure_item_text.h"

namespace applogic::platform {
namespace {

namespace status = secure_store_status;

constexpr const char* kStoreAttribute = "store";
constexpr const char* kClassAttribute = "class";
constexpr const char* kServiceAttribute = "service";
constexpr const char* kAccessibleAttribute = "accessible";
constexpr const char* kOrderAttribute = "order";
constexpr const char* kContentType = "application/octet-stream";

const SecretSchema& schema() {
  static const SecretSchema kSchema = [] {
    SecretSchema built{};
    built.name = "app.tunevo.SecureItem";
    built.flags = SECRET_SCHEMA_NONE;
    const char* names[] = {kStoreAttribute, kClassAttribute, kServiceAttribute, kAccessibleAttribute,
                           kOrderAttribute};
    for (std::size_t i = 0; i < std::size(names); ++i) {
      built.attributes[i] = SecretSchemaAttribute{names[i], SECRET_SCHEMA_ATTRIBUTE_STRING};
    }
    return built;
  }();
  return kSchema;
}

bool inSchema(std::string_view name) {
  for (const char* known :
       {kStoreAttribute, kClassAttribute, kServiceAttribute, kAccessibleAttribute, kOrderAttribute}) {
    if (name == known) return true;
  }
  return false;
}

using detail::accessibleFromText;
using detail::accessibleText;
using detail::classFromText;
using detail::classText;

// The keychain statuses closest to what went wrong. Whatever says "the keyring cannot be
// reached" (no bus, no daemon, a daemon that does not answer) is kNotAvailable, which also
// makes the store reconnect on its next call.
SecureStoreStatus statusOf(const GError* error) {
  if (error == nullptr) return status::kNotAvailable;
  if (error->domain == SECRET_ERROR) {
    switch (error->code) {
      case SECRET_ERROR_IS_LOCKED:
        return status::kInteractionNotAllowed;
      case SECRET_ERROR_NO_SUCH_OBJECT:
        return status::kItemNotFound;
      case SECRET_ERROR_ALREADY_EXISTS:
        return status::kDuplicateItem;
      case SECRET_ERROR_PROTOCOL:
      case SECRET_ERROR_INVALID_FILE_FORMAT:
        return status::kDecode;
      default:
        return status::kNotAvailable;
    }
  }
  if (error->domain == G_DBUS_ERROR) {
    switch (error->code) {
      case G_DBUS_ERROR_ACCESS_DENIED:
      case G_DBUS_ERROR_AUTH_FAILED:
        return status::kAuthFailed;
      case G_DBUS_ERROR_NO_MEMORY:
        return status::kAllocate;
      case G_DBUS_ERROR_UNKNOWN_METHOD:
      case G_DBUS_ERROR_NOT_SUPPORTED:
        return status::kUnimplemented;
      case G_DBUS_ERROR_INVALID_ARGS:
        return status::kParam;
      default:
        return status::kNotAvailable;
    }
  }
  // libsecret reports a dismissed prompt as a cancellation (we never cancel calls ourselves).
  if (error->domain == G_IO_ERROR && error->code == G_IO_ERROR_CANCELLED) return status::kAuthFailed;
  return status::kNotAvailable;
}

// Whether an error from a call on an item that a search found says the item is no longer there:
// another program removed it in between. gnome-keyring answers so with D-Bus's "unknown method"
// ("Object does not exist at path"), not with libsecret's "no such object".
bool isGone(const GError* error) {
  return statusOf(error) == status::kItemNotFound ||
         (error->domain == G_DBUS_ERROR && (error->code == G_DBUS_ERROR_UNKNOWN_METHOD || error->code == G_DBUS_ERROR_UNKNOWN_OBJECT));
}

struct ObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using ObjectPtr = std::unique_ptr<T, ObjectUnref>;

class ErrorSlot {
 public:
  ErrorSlot() = default;
  ~ErrorSlot() { g_clear_error(&error_); }
  ErrorSlot(const ErrorSlot&) = delete;
  ErrorSlot& operator=(const ErrorSlot&) = delete;

  GError** out() { return &error_; }
  const GError* get() const { return error_; }
  explicit operator bool() const { return error_ != nullptr; }

 private:
  GError* error_ = nullptr;
};

struct ValueUnref {
  void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using ValuePtr = std::unique_ptr<SecretValue, ValueUnref>;

ValuePtr valueOf(const std::optional<std::vector<std::uint8_t>>& data) {
  static const char kEmpty[] = "";
  const bool empty = !data || data->empty();
  const auto* bytes = empty ? kEmpty : reinterpret_cast<const gchar*>(data->data());
  return ValuePtr(secret_value_new(bytes, empty ? 0 : static_cast<gssize>(data->size()), kContentType));
}

// Attributes as the string table libsecret takes. The table points into `values_`, so it is
// built when asked for and the values are not changed afterwards.
class AttributeTable {
 public:
  AttributeTable() = default;
  ~AttributeTable() {
    if (table_ != nullptr) g_hash_table_unref(table_);
  }
  AttributeTable(const AttributeTable&) = delete;
  AttributeTable& operator=(const AttributeTable&) = delete;

  void set(const std::string& name, std::string value) { values_[name] = std::move(value); }
  void erase(const std::string& name) { values_.erase(name); }

  GHashTable* get() {
    if (table_ != nullptr) g_hash_table_unref(table_);
    table_ = g_hash_table_new(g_str_hash, g_str_equal);
    for (const auto& [name, value] : values_) {
      g_hash_table_insert(table_, const_cast<char*>(name.c_str()), const_cast<char*>(value.c_str()));
    }
    return table_;
  }

 private:
  std::map<std::string, std::string> values_;
  GHashTable* table_ = nullptr;
};

// An item found by a search, with the attributes of our schema that it carries.
struct Found {
  ObjectPtr<SecretItem> item;
  std::map<std::string, std::string> attributes;
  std::uint64_t order = 0;
  std::string path;

  std::optional<std::string> attribute(const char* name) const {
    const auto it = attributes.find(name);
    if (it == attributes.end()) return std::nullopt;
    return it->second;
  }
};

Found describe(SecretItem* item) {
  Found found{ObjectPtr<SecretItem>(item), {}, 0, {}};
  if (GHashTable* attributes = secret_item_get_attributes(item)) {
    GHashTableIter iter;
    gpointer key = nullptr;
    gpointer value = nullptr;
    g_hash_table_iter_init(&iter, attributes);
    while (g_hash_table_iter_next(&iter, &key, &value)) {
      const std::string_view name(static_cast<const char*>(key));
      if (inSchema(name)) found.attributes.emplace(name, static_cast<const char*>(value));
    }
    g_hash_table_unref(attributes);
  }
  if (const auto order = found.attribute(kOrderAttribute)) {
    std::from_chars(order->data(), order->data() + order->size(), found.order);
  }
  if (const char* path = g_dbus_proxy_get_object_path(G_DBUS_PROXY(item))) found.path = path;
  return found;
}

class LibsecretSecureStore final : public SecureStore {
 public:
  explicit LibsecretSecureStore(std::string storeName) : storeName_(std::move(storeName)) {}

  SecureStoreStatus copyMatching(const SecureItem& query, SecureItemReturn what, SecureItem* result) override {
    if (query.data) return status::kParam;
    std::lock_guard lock(mutex_);
    std::vector<Found> found;
    if (const auto searched = search(query, true, found); searched != status::kSuccess) return searched;
    if (found.empty()) return status::kItemNotFound;
    SecretItem* first = found.front().item.get();
    if (secret_item_get_locked(first)) return status::kInteractionNotAllowed;
    if (result == nullptr) return status::kSuccess;
    if (what == SecureItemReturn::attributes) {
      const Found& item = found.front();
      *result = SecureItem{};
      if (const auto itemClass = item.attribute(kClassAttribute)) result->itemClass = classFromText(*itemClass);
      result->service = item.attribute(kServiceAttribute);
      if (const auto accessible = item.attribute(kAccessibleAttribute)) {
        result->accessible = accessibleFromText(*accessible);
      }
      return status::kSuccess;
    }
    ErrorSlot error;
    if (!secret_item_load_secret_sync(first, nullptr, error.out())) return failOnItem(error);
    const ValuePtr value(secret_item_get_secret(first));
    if (!value) return status::kInteractionNotAllowed;  // still locked
    gsize length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(secret_value_get(value.get(), &length));
    *result = SecureItem{};
    result->data = std::vector<std::uint8_t>(bytes, bytes + length);
    return status::kSuccess;
  }

  SecureStoreStatus add(const SecureItem& attributes) override {
    if (!attributes.itemClass || !attributes.service) return status::kParam;
    std::lock_guard lock(mutex_);
    // One search over the whole store answers both questions: is the service taken, and which
    // order number comes next.
    std::vector<Found> all;
    if (const auto searched = search(SecureItem{}, false, all); searched != status::kSuccess) return searched;
    std::uint64_t last = 0;
    const std::string itemClass(classText(*attributes.itemClass));
    for (const Found& item : all) {
      if (item.attribute(kClassAttribute) == itemClass && item.attribute(kServiceAttribute) == *attributes.service) {
        return status::kDuplicateItem;
      }
      last = std::max(last, item.order);
    }
    AttributeTable table;
    table.set(kStoreAttribute, storeName_);
    table.set(kClassAttribute, itemClass);
    table.set(kServiceAttribute, *attributes.service);
    if (attributes.accessible) table.set(kAccessibleAttribute, std::string(accessibleText(*attributes.accessible)));
    table.set(kOrderAttribute, std::to_string(last + 1));
    const std::string label = storeName_ + " secure item " + *attributes.service;
    const ValuePtr value = valueOf(attributes.data);
    ErrorSlot error;
    if (!secret_service_store_sync(service_.get(), &schema(), table.get(), SECRET_COLLECTION_DEFAULT, label.c_str(),
                                   value.get(), nullptr, error.out())) {
      return fail(error);
    }
    return status::kSuccess;
  }

  SecureStoreStatus update(const SecureItem& query, const SecureItem& attributesToUpdate) override {
    if (query.data || attributesToUpdate.itemClass) return status::kParam;
    if (!attributesToUpdate.service && !attributesToUpdate.accessible && !attributesToUpdate.data) {
      return status::kParam;
    }
    std::lock_guard lock(mutex_);
    std::vector<Found> matches;
    if (const auto searched = search(query, true, matches); searched != status::kSuccess) return searched;
    if (matches.empty()) return status::kItemNotFound;
    for (const Found& match : matches) {
      if (secret_item_get_locked(match.item.get())) return status::kInteractionNotAllowed;
    }
    if (attributesToUpdate.service) {
      if (const auto collides = collision(matches, *attributesToUpdate.service); collides != status::kSuccess) {
        return collides;
      }
    }
    const ValuePtr value = attributesToUpdate.data ? valueOf(attributesToUpdate.data) : ValuePtr();
    for (const Found& match : matches) {
      ErrorSlot error;
      if (attributesToUpdate.service || attributesToUpdate.accessible) {
        AttributeTable table;
        for (const auto& [name, text] : match.attributes) table.set(name, text);
        if (attributesToUpdate.service) table.set(kServiceAttribute, *attributesToUpdate.service);
        if (attributesToUpdate.accessible) {
          table.set(kAccessibleAttribute, std::string(accessibleText(*attributesToUpdate.accessible)));
        }
        if (!secret_item_set_attributes_sync(match.item.get(), &schema(), table.get(), nullptr, error.out())) {
          return failOnItem(error);
        }
      }
      if (value && !secret_item_set_secret_sync(match.item.get(), value.get(), nullptr, error.out())) {
        return failOnItem(error);
      }
    }
    return status::kSuccess;
  }

  SecureStoreStatus remove(const SecureItem& query) override {
    if (query.data) return status::kParam;
    std::lock_guard lock(mutex_);
    std::vector<Found> matches;
    if (const auto searched = search(query, true, matches); searched != status::kSuccess) return searched;
    if (matches.empty()) return status::kItemNotFound;
    // A locked item is reported, not skipped: "not found" would tell the caller it is gone.
    for (const Found& match : matches) {
      if (secret_item_get_locked(match.item.get())) return status::kInteractionNotAllowed;
    }
    for (const Found& match : matches) {
      ErrorSlot error;
      if (!secret_item_delete_sync(match.item.get(), nullptr, error.out()) && !isGone(error.get())) {
        return fail(error);
      }
    }
    return status::kSuccess;
  }

 private:
  void fill(AttributeTable& table, const SecureItem& query) const {
    table.set(kStoreAttribute, storeName_);
    if (query.itemClass) table.set(kClassAttribute, std::string(classText(*query.itemClass)));
    if (query.service) table.set(kServiceAttribute, *query.service);
    if (query.accessible) table.set(kAccessibleAttribute, std::string(accessibleText(*query.accessible)));
  }

  // Items matching `query`, first added first. `unlock` lets the daemon ask the user to unlock a
  // locked collection (on the desktop, its own prompt).
  SecureStoreStatus search(const SecureItem& query, bool unlock, std::vector<Found>& found) {
    if (const auto connected = connect(); connected != status::kSuccess) return connected;
    AttributeTable table;
    fill(table, query);
    const auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | (unlock ? SECRET_SEARCH_UNLOCK : 0));
    ErrorSlot error;
    GList* items = secret_service_search_sync(service_.get(), &schema(), table.get(), flags, nullptr, error.out());
    if (error) {
      g_list_free_full(items, g_object_unref);
      return fail(error);
    }
    for (GList* each = items; each != nullptr; each = each->next) {
      found.push_back(describe(SECRET_ITEM(each->data)));  // takes the list's reference
    }
    g_list_free(items);
    // Equal orders come only from two processes adding at once; then the daemon's object paths
    // decide, shorter first so that ".../9" comes before ".../10".
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
      return std::tuple(a.order, a.path.size(), std::string_view(a.path)) <
             std::tuple(b.order, b.path.size(), std::string_view(b.path));
    });
    return status::kSuccess;
  }

  // kDuplicateItem when giving `matches` the service `service` would leave two items of one
  // class with that service: another item already has it, or several matches share a class.
  SecureStoreStatus collision(const std::vector<Found>& matches, const std::string& service) {
    std::set<std::string> paths;
    std::set<std::string> classes;
    for (const Found& match : matches) {
      paths.insert(match.path);
      if (!classes.insert(match.attribute(kClassAttribute).value_or("")).second) return status::kDuplicateItem;
    }
    std::vector<Found> holders;
    SecureItem holdersQuery;
    holdersQuery.service = service;
    if (const auto searched = search(holdersQuery, false, holders); searched != status::kSuccess) return searched;
    for (const Found& holder : holders) {
      if (!paths.contains(holder.path) && classes.contains(holder.attribute(kClassAttribute).value_or(""))) {
        return status::kDuplicateItem;
      }
    }
    return status::kSuccess;
  }

  SecureStoreStatus connect() {
    if (service_) return status::kSuccess;
    // Registers libsecret's D-Bus error names, so that the daemon's errors arrive as SECRET_ERROR.
    (void)SECRET_ERROR;
    ErrorSlot error;
    // A service object of our own rather than libsecret's shared one: its session and proxy
    // belong to this store, whose mutex serialises every use of them.
    SecretService* service =
        secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, nullptr, error.out());
    if (service == nullptr) {
      const auto failed = statusOf(error.get());
      return failed == status::kSuccess ? status::kNotAvailable : failed;
    }
    service_.reset(service);
    return status::kSuccess;
  }

  // A call on an item that the search found: one removed elsewhere since is not found.
  SecureStoreStatus failOnItem(const ErrorSlot& error) {
    return isGone(error.get()) ? status::kItemNotFound : fail(error);
  }

  SecureStoreStatus fail(const ErrorSlot& error) {
    const auto failed = statusOf(error.get());
    if (failed == status::kNotAvailable) service_.reset();  // reconnect on the next call
    return failed;
  }

  std::mutex mutex_;
  const std::string storeName_;
  ObjectPtr<SecretService> service_;
};

}  // namespace

std::shared_ptr<SecureStore> makeLibsecretSecureStore(std::string storeName) {
  return std::make_shared<LibsecretSecureStore>(std::move(storeName));
}

}  // namespace applogic::platform
