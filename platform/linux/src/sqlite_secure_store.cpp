#include "applogic/platform/sqlite_secure_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "secure_item_text.h"

namespace applogic::platform {
namespace {

namespace status = secure_store_status;

constexpr int kBusyTimeoutMs = 5000;

constexpr const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS items ("
    " id INTEGER PRIMARY KEY,"
    " class TEXT NOT NULL,"
    " service TEXT NOT NULL,"
    " accessible TEXT,"
    " data BLOB NOT NULL,"
    " UNIQUE (class, service))";

using detail::accessibleFromText;
using detail::accessibleText;
using detail::classFromText;
using detail::classText;

SecureStoreStatus statusOf(int sqliteResult) {
  switch (sqliteResult & 0xff) {
    case SQLITE_NOMEM:
      return status::kAllocate;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return status::kInteractionNotAllowed;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return status::kDecode;
    case SQLITE_CONSTRAINT:
      return status::kDuplicateItem;
    default:
      return status::kNotAvailable;
  }
}

class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql) {
    result_ = sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr);
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool ok() const { return result_ == SQLITE_OK; }
  int prepareResult() const { return result_; }
  sqlite3_stmt* get() const { return statement_; }

  void bindText(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }
  void bindBlob(int index, const std::vector<std::uint8_t>& bytes) {
    // A zero-length blob must still be a blob, not NULL (the column is NOT NULL).
    static const std::uint8_t kEmpty = 0;
    sqlite3_bind_blob(statement_, index, bytes.empty() ? &kEmpty : bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_TRANSIENT);
  }
  int step() { return sqlite3_step(statement_); }

 private:
  sqlite3_stmt* statement_ = nullptr;
  int result_ = SQLITE_ERROR;
};

// The WHERE clause of a query and the values to bind, in order. Only fixed fragments enter the
// SQL text; every value is bound.
struct Filter {
  std::string sql;
  std::vector<std::string> values;
};

Filter filterOf(const SecureItem& query) {
  Filter filter{" WHERE 1", {}};
  if (query.itemClass) {
    filter.sql += " AND class = ?";
    filter.values.emplace_back(classText(*query.itemClass));
  }
  if (query.service) {
    filter.sql += " AND service = ?";
    filter.values.push_back(*query.service);
  }
  if (query.accessible) {
    filter.sql += " AND accessible = ?";
    filter.values.emplace_back(accessibleText(*query.accessible));
  }
  return filter;
}

class SqliteSecureStore final : public SecureStore {
 public:
  explicit SqliteSecureStore(std::filesystem::path path) : path_(std::move(path)) {}
  ~SqliteSecureStore() override { sqlite3_close_v2(db_); }
  SqliteSecureStore(const SqliteSecureStore&) = delete;
  SqliteSecureStore& operator=(const SqliteSecureStore&) = delete;

  SecureStoreStatus copyMatching(const SecureItem& query, SecureItemReturn what, SecureItem* result) override {
    if (query.data) return status::kParam;
    std::lock_guard lock(mutex_);
    if (const auto opened = open(); opened != status::kSuccess) return opened;
    const Filter filter = filterOf(query);
    Statement select(db_, "SELECT class, service, accessible, data FROM items" + filter.sql + " ORDER BY id LIMIT 1");
    if (!select.ok()) return statusOf(select.prepareResult());
    bindAll(select, filter, 1);
    const int stepped = select.step();
    if (stepped == SQLITE_DONE) return status::kItemNotFound;
    if (stepped != SQLITE_ROW) return statusOf(stepped);
    if (result == nullptr) return status::kSuccess;
    *result = SecureItem{};
    if (what == SecureItemReturn::attributes) {
      result->itemClass = classFromText(columnText(select, 0));
      result->service = std::string(columnText(select, 1));
      result->accessible = accessibleFromText(columnText(select, 2));
    } else {
      const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(select.get(), 3));
      const int size = sqlite3_column_bytes(select.get(), 3);
      result->data = bytes ? std::vector<std::uint8_t>(bytes, bytes + size) : std::vector<std::uint8_t>{};
    }
    return status::kSuccess;
  }

  SecureStoreStatus add(const SecureItem& attributes) override {
    if (!attributes.itemClass || !attributes.service) return status::kParam;
    std::lock_guard lock(mutex_);
    if (const auto opened = open(); opened != status::kSuccess) return opened;
    return inTransaction([&]() -> SecureStoreStatus {
      Statement insert(db_, "INSERT INTO items (class, service, accessible, data) VALUES (?, ?, ?, ?)");
      if (!insert.ok()) return statusOf(insert.prepareResult());
      insert.bindText(1, classText(*attributes.itemClass));
      insert.bindText(2, *attributes.service);
      if (attributes.accessible) insert.bindText(3, accessibleText(*attributes.accessible));
      insert.bindBlob(4, attributes.data.value_or(std::vector<std::uint8_t>{}));
      const int stepped = insert.step();
      return stepped == SQLITE_DONE ? status::kSuccess : statusOf(stepped);
    });
  }

  SecureStoreStatus update(const SecureItem& query, const SecureItem& attributesToUpdate) override {
    if (query.data || attributesToUpdate.itemClass) return status::kParam;
    if (!attributesToUpdate.service && !attributesToUpdate.accessible && !attributesToUpdate.data) {
      return status::kParam;
    }
    std::lock_guard lock(mutex_);
    if (const auto opened = open(); opened != status::kSuccess) return opened;
    return inTransaction([&]() -> SecureStoreStatus {
      std::string sql = "UPDATE items SET id = id";
      if (attributesToUpdate.service) sql += ", service = ?";
      if (attributesToUpdate.accessible) sql += ", accessible = ?";
      if (attributesToUpdate.data) sql += ", data = ?";
      const Filter filter = filterOf(query);
      Statement change(db_, sql + filter.sql);
      if (!change.ok()) return statusOf(change.prepareResult());
      int index = 1;
      if (attributesToUpdate.service) change.bindText(index++, *attributesToUpdate.service);
      if (attributesToUpdate.accessible) change.bindText(index++, accessibleText(*attributesToUpdate.accessible));
      if (attributesToUpdate.data) change.bindBlob(index++, *attributesToUpdate.data);
      bindAll(change, filter, index);
      const int stepped = change.step();
      if (stepped != SQLITE_DONE) return statusOf(stepped);
      return sqlite3_changes(db_) == 0 ? status::kItemNotFound : status::kSuccess;
    });
  }

  SecureStoreStatus remove(const SecureItem& query) override {
    if (query.data) return status::kParam;
    std::lock_guard lock(mutex_);
    if (const auto opened = open(); opened != status::kSuccess) return opened;
    return inTransaction([&]() -> SecureStoreStatus {
      const Filter filter = filterOf(query);
      Statement erase(db_, "DELETE FROM items" + filter.sql);
      if (!erase.ok()) return statusOf(erase.prepareResult());
      bindAll(erase, filter, 1);
      const int stepped = erase.step();
      if (stepped != SQLITE_DONE) return statusOf(stepped);
      return sqlite3_changes(db_) == 0 ? status::kItemNotFound : status::kSuccess;
    });
  }

 private:
  static std::string_view columnText(Statement& statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
    return text ? std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column)))
                : std::string_view{};
  }

  static void bindAll(Statement& statement, const Filter& filter, int firstIndex) {
    for (const auto& value : filter.values) statement.bindText(firstIndex++, value);
  }

  // BEGIN IMMEDIATE takes the write lock at once, so two processes never both read and then
  // collide on the upgrade (which SQLite reports as busy without waiting).
  template <class Body>
  SecureStoreStatus inTransaction(Body body) {
    if (const int begun = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); begun != SQLITE_OK) {
      return statusOf(begun);
    }
    const SecureStoreStatus result = body();
    if (result != status::kSuccess) {
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      return result;
    }
    if (const int committed = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr); committed != SQLITE_OK) {
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      return statusOf(committed);
    }
    return status::kSuccess;
  }

  // Two connections opening a new file at once race on its set-up: switching it to WAL and
  // creating the table take the write lock from a read lock, and SQLite answers such an upgrade
  // "busy" at once, without its busy handler, where waiting could deadlock. The step is tried
  // again until the busy timeout has passed.
  static int setUp(sqlite3* db, const char* statement) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
    for (;;) {
      const int done = sqlite3_exec(db, statement, nullptr, nullptr, nullptr);
      if (done != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline) return done;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  SecureStoreStatus open() {
    if (db_ != nullptr) return status::kSuccess;
    if (path_.empty()) return status::kNotAvailable;
    std::error_code ignored;
    if (path_.has_parent_path()) std::filesystem::create_directories(path_.parent_path(), ignored);
    // The file is made here rather than by SQLite so that it never exists with wider
    // permissions; SQLite gives its -wal and -shm files the mode of the database file.
    const int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return status::kNotAvailable;
    const bool private_ = ::fchmod(fd, 0600) == 0;
    ::close(fd);
    if (!private_) return status::kNotAvailable;

    sqlite3* db = nullptr;
    const int opened = sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (opened != SQLITE_OK) {
      sqlite3_close_v2(db);
      return status::kNotAvailable;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    for (const char* setup : {"PRAGMA journal_mode = WAL", "PRAGMA secure_delete = ON", "PRAGMA synchronous = FULL",
                              kSchema}) {
      if (const int done = setUp(db, setup); done != SQLITE_OK) {
        sqlite3_close_v2(db);
        return statusOf(done);
      }
    }
    db_ = db;
    return status::kSuccess;
  }

  std::mutex mutex_;
  std::filesystem::path path_;
  sqlite3* db_ = nullptr;
};

}  // namespace

std::filesystem::path defaultSecureStorePath(const std::function<const char*(const char*)>& getenv) {
  const auto read = [&](const char* name) -> std::string_view {
    const char* value = getenv ? getenv(name) : std::getenv(name);
    return value ? std::string_view(value) : std::string_view{};
  };
  std::filesystem::path base(read("XDG_DATA_HOME"));
  if (!base.is_absolute()) {
    const std::filesystem::path home(read("HOME"));
    if (!home.is_absolute()) return {};
    base = home / ".local" / "share";
  }
  return base / "tunevo" / "secure-store.sqlite3";
}

std::shared_ptr<SecureStore> makeSqliteSecureStore(std::filesystem::path path) {
  return std::make_shared<SqliteSecureStore>(std::move(path));
}

}  // namespace applogic::platform
