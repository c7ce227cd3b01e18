// One contract, every SecureStore: the in-memory double, the SQLite port and the keyring port must
// agree. The keyring runs only inside scripts/with-test-keyring (a private bus and a throw-away
// keyring); elsewhere its tests skip, or fail when APPLOGIC_REQUIRE_KEYRING=1.
#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <type_traits>

#include "applogic/platform/libsecret_secure_store.h"
#include "applogic/platform/platform.h"
#include "applogic/platform/sqlite_secure_store.h"
#include "applogic/testing/in_memory_secure_store.h"

namespace applogic {
namespace {

namespace status = platform::secure_store_status;
namespace fs = std::filesystem;
using platform::SecureItem;
using platform::SecureItemReturn;
using platform::SecureStoreStatus;
using Bytes = std::vector<std::uint8_t>;
constexpr auto kGeneric = platform::SecureItemClass::genericPassword;
constexpr auto kAfterFirstUnlock = platform::SecureItemAccessible::afterFirstUnlock;
constexpr auto kWhenUnlocked = platform::SecureItemAccessible::whenUnlocked;

SecureItem item(std::string service, Bytes data) { return {kGeneric, std::move(service), kAfterFirstUnlock, std::move(data)}; }
SecureItem query(std::string service) { return {kGeneric, std::move(service), std::nullopt, std::nullopt}; }
SecureItem dataOnly(Bytes data) { return {std::nullopt, std::nullopt, std::nullopt, std::move(data)}; }

// What a store holds for `service`: its attributes with its data, or nothing.
std::optional<SecureItem> held(platform::SecureStore& store, const std::string& service) {
  SecureItem attributes, data;
  if (store.copyMatching(query(service), SecureItemReturn::attributes, &attributes) != status::kSuccess) return std::nullopt;
  EXPECT_EQ(store.copyMatching(query(service), SecureItemReturn::data, &data), status::kSuccess);
  attributes.data = data.data;
  return attributes;
}

/// A fresh directory per test, removed afterwards.
struct ScratchDirectory {
  fs::path path = [] {
    std::string pattern = (fs::temp_directory_path() / "applogic-store-XXXXXX").string();
    return fs::path(::mkdtemp(pattern.data()));
  }();
  ~ScratchDirectory() { std::error_code ignored; fs::remove_all(path, ignored); }
};

// Each port makes a store, and another store on the same items (another connection or session).
struct InMemory {
  std::shared_ptr<platform::SecureStore> store = std::make_shared<testing::InMemorySecureStore>();
  std::shared_ptr<platform::SecureStore> make() { return store; }
};

struct Sqlite {
  ScratchDirectory directory;
  std::shared_ptr<platform::SecureStore> make() { return platform::makeSqliteSecureStore(directory.path / "sub" / "store.sqlite3"); }
};

bool environmentSays(const char* name) { return std::getenv(name) && std::string(std::getenv(name)) == "1"; }

/// Items of one test live under a store name of their own, removed afterwards: tests of several
/// processes share the keyring daemon.
struct Keyring {
  std::string name = "applogic-test-" + std::to_string(::getpid()) + "-" + std::to_string(next++);
  std::shared_ptr<platform::SecureStore> make() { return platform::makeLibsecretSecureStore(name); }
  ~Keyring() { if (!unavailable()) (void)make()->remove(SecureItem{}); }

  /// Why the keyring tests cannot run here, if they cannot.
  static std::optional<std::string> unavailable() {
    if (!environmentSays("APPLOGIC_TEST_KEYRING")) return "no test keyring: run under scripts/with-test-keyring";
    const auto answered = platform::makeLibsecretSecureStore("applogic-test-probe")->copyMatching({}, SecureItemReturn::attributes, nullptr);
    if (answered == status::kSuccess || answered == status::kItemNotFound) return std::nullopt;
    return "the test keyring answers status " + std::to_string(answered);
  }
  static inline std::atomic<int> next{0};
};

/// Skips a keyring test where no test keyring runs; a failure when CI requires the keyring.
#define SKIP_WITHOUT_KEYRING()                                                                  \
  if (const auto reason = Keyring::unavailable()) {                                             \
    if (environmentSays("APPLOGIC_REQUIRE_KEYRING")) FAIL() << "keyring required: " << *reason; \
    GTEST_SKIP() << *reason;                                                                    \
  }

template <class Port>
class SecureStoreContract : public ::testing::Test {
 protected:
  void SetUp() override {
    if constexpr (std::is_same_v<Port, Keyring>) SKIP_WITHOUT_KEYRING();
  }
  Port port_;
};

using Ports = ::testing::Types<InMemory, Sqlite, Keyring>;
struct PortName {
  template <class Port>
  static std::string GetName(int) { return std::is_same_v<Port, InMemory> ? "InMemory" : std::is_same_v<Port, Sqlite> ? "Sqlite" : "Keyring"; }
};
TYPED_TEST_SUITE(SecureStoreContract, Ports, PortName);

// Calls in order, on two stores of the same items; a call that fails changes nothing, which the
// final contents show.
TYPED_TEST(SecureStoreContract, CallsAnswerTheirStatusAndLeaveTheItemsTheyPromise) {
  const auto store = this->port_.make();
  const auto other = this->port_.make();
  struct Step { const char* name; std::function<SecureStoreStatus()> call; SecureStoreStatus expected; };
  const Bytes binary{0, 0xff, 0, 'x'};
  SecureItem found;
  const Step steps[] = {
      {"add, no data", [&] { return other->add({kGeneric, "none", std::nullopt, std::nullopt}); }, status::kSuccess},
      {"add", [&] { return store->add(item("1", {1, 2, 3})); }, status::kSuccess},
      {"add, locked items", [&] { return store->add({kGeneric, "2", kWhenUnlocked, Bytes{9}}); }, status::kSuccess},
      {"add, empty data", [&] { return store->add(item("empty", {})); }, status::kSuccess},
      {"add, binary data", [&] { return store->add(item("binary", binary)); }, status::kSuccess},
      {"add, the same service again", [&] { return other->add(item("1", {2})); }, status::kDuplicateItem},
      {"add, no class", [&] { return store->add({std::nullopt, "x", std::nullopt, Bytes{1}}); }, status::kParam},
      {"add, no service", [&] { return store->add({kGeneric, std::nullopt, std::nullopt, Bytes{1}}); }, status::kParam},
      {"find, data in the query", [&] { return store->copyMatching(dataOnly({1}), SecureItemReturn::data, nullptr); }, status::kParam},
      {"find, nowhere", [&] { return store->copyMatching(query("3"), SecureItemReturn::data, &found); }, status::kItemNotFound},
      {"find, no result wanted", [&] { return store->copyMatching(query("1"), SecureItemReturn::data, nullptr); }, status::kSuccess},
      {"find, the first added of a class", [&] { return store->copyMatching({kGeneric, {}, {}, {}}, SecureItemReturn::attributes, &found); }, status::kSuccess},
      {"update, a class", [&] { return store->update(query("1"), {kGeneric, std::nullopt, std::nullopt, Bytes{2}}); }, status::kParam},
      {"update, nothing", [&] { return store->update(query("1"), SecureItem{}); }, status::kParam},
      {"update, data in the query", [&] { return store->update(item("1", {1, 2, 3}), dataOnly({5})); }, status::kParam},
      {"update, onto another service", [&] { return store->update(query("1"), {std::nullopt, "2", std::nullopt, Bytes{9}}); }, status::kDuplicateItem},
      {"update, nowhere", [&] { return store->update(query("3"), dataOnly({3})); }, status::kItemNotFound},
      {"update, the data", [&] { return other->update(query("1"), dataOnly({7, 7})); }, status::kSuccess},
      {"update, by accessibility", [&] { return store->update({kGeneric, std::nullopt, kWhenUnlocked, std::nullopt}, {std::nullopt, "locked", kAfterFirstUnlock, std::nullopt}); }, status::kSuccess},
      {"update, the accessibility", [&] { return store->update(query("binary"), {std::nullopt, std::nullopt, kWhenUnlocked, std::nullopt}); }, status::kSuccess},
      {"update, to its own service", [&] { return other->update(query("1"), {std::nullopt, "1", std::nullopt, std::nullopt}); }, status::kSuccess},
      {"remove, data in the query", [&] { return store->remove(dataOnly({1})); }, status::kParam},
      {"remove", [&] { return store->remove(query("empty")); }, status::kSuccess},
      {"remove, again", [&] { return other->remove(query("empty")); }, status::kItemNotFound},
  };
  for (const auto& step : steps) EXPECT_EQ(step.call(), step.expected) << step.name;
  EXPECT_EQ(found.service, "none");  // the last find: the first added of the class
  EXPECT_EQ(held(*other, "1"), item("1", {7, 7}));
  EXPECT_EQ(held(*other, "2"), std::nullopt);
  EXPECT_EQ(held(*other, "locked"), item("locked", {9}));
  EXPECT_EQ(held(*other, "none"), (SecureItem{kGeneric, "none", std::nullopt, Bytes{}}));
  EXPECT_EQ(held(*other, "binary"), (SecureItem{kGeneric, "binary", kWhenUnlocked, binary}));
  EXPECT_EQ(held(*other, "empty"), std::nullopt);
  ASSERT_EQ(store->remove(SecureItem{}), status::kSuccess);
  EXPECT_EQ(other->copyMatching({}, SecureItemReturn::attributes, nullptr), status::kItemNotFound);
}

// Calls from several threads at once all land, on one store and on several of the same items;
// a store of other items sees none of them.
TYPED_TEST(SecureStoreContract, CallsFromSeveralThreadsAllLandAndOtherStoresAreApart) {
  const auto shared = this->port_.make();
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  const auto service = [](int t, int i) { return std::to_string(t) + "-" + std::to_string(i); };
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t, store = t % 2 == 0 ? shared : this->port_.make()] {
      for (std::uint8_t i = 0; i < 5; ++i) {
        failures += store->add(item(service(t, i), {i})) != status::kSuccess;
        failures += store->update(query(service(t, i)), dataOnly({static_cast<std::uint8_t>(i + 1)})) != status::kSuccess;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  for (int t = 0; t < 4; ++t) {
    for (std::uint8_t i = 0; i < 5; ++i) EXPECT_EQ(held(*shared, service(t, i)), item(service(t, i), {static_cast<std::uint8_t>(i + 1)}));
  }
  TypeParam otherPort;
  const auto stranger = otherPort.make();
  EXPECT_EQ(stranger->copyMatching(query("0-0"), SecureItemReturn::data, nullptr), status::kItemNotFound);
}

// The host's choice of the keyring holds when no keyring can be reached: calls answer "not
// available" and nothing is written to the SQLite file instead. Run in a child process, whose
// session bus address can still be chosen before GLib connects.
TEST(LibsecretSecureStore, ChosenKeyringOutOfReachAnswersNotAvailableWithoutFallingBack) {
  ScratchDirectory directory;
  const auto sqliteFile = directory.path / "store.sqlite3";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (directory.path / "no-bus").string()).c_str(), 1);
        platform::LinuxPlatformOptions options;
        options.secureStoreBackend = platform::SecureStoreBackend::keyring;
        options.secureStorePath = sqliteFile;
        const auto store = platform::makeLinuxPlatform(options).secureStore;
        const bool unavailable = store->add(item("1", {1})) == status::kNotAvailable &&
                                 store->copyMatching(query("1"), SecureItemReturn::data, nullptr) == status::kNotAvailable &&
                                 store->remove(query("1")) == status::kNotAvailable;
        std::_Exit(unavailable ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_FALSE(fs::exists(sqliteFile));
}

// The keyring's methods this process calls, counted on the session bus connection libsecret uses.
std::atomic<int> sessionsOpened{0}, unlocksAsked{0};
GDBusMessage* countKeyringCalls(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer) {
  const char* member = incoming ? nullptr : g_dbus_message_get_member(message);
  sessionsOpened += g_strcmp0(member, "OpenSession") == 0;
  unlocksAsked += g_strcmp0(member, "Unlock") == 0;
  return message;
}

// Items that another program wrote under this store's name rank by their order numbers (as
// numbers), not by their places in the keyring, within the class asked for, ahead of one the store
// adds after them; an attribute outside the store's own does not stop an update. Calls that
// read, change or remove items let the keyring unlock them (libsecret asks for all it finds; a
// locked collection prompts on the desktop); an add and an update's search for other holders of
// its service do not. One session serves every call.
TEST(LibsecretSecureStore, ItemsWrittenElsewhereRankByOrderAndTakeUpdatesOnOneSession) {
  SKIP_WITHOUT_KEYRING();
  Keyring keyring;
  SecretSchema elsewhere{};
  elsewhere.name = "app.tunevo.SecureItem";
  int next = 0;
  for (const char* name : {"store", "class", "service", "order", "note"}) {
    elsewhere.attributes[next++] = SecretSchemaAttribute{name, SECRET_SCHEMA_ATTRIBUTE_STRING};
  }
  struct Written {
    const char *service, *itemClass, *order;
  };
  for (const auto& [service, itemClass, order] :
       {Written{"late", "genp", "10"}, Written{"early", "genp", "9"}, Written{"of another class", "inet", "1"}}) {
    GError* error = nullptr;
    const bool stored = secret_password_store_sync(&elsewhere, SECRET_COLLECTION_DEFAULT, service, "secret", nullptr,
                                                   &error, "store", keyring.name.c_str(), "class", itemClass, "service",
                                                   service, "order", order, "note", "written elsewhere", nullptr);
    const std::string why = error ? error->message : "";
    g_clear_error(&error);
    ASSERT_TRUE(stored) << why;
  }
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  const guint filter = g_dbus_connection_add_filter(bus, countKeyringCalls, nullptr, nullptr);
  sessionsOpened = unlocksAsked = 0;
  const auto store = keyring.make();
  EXPECT_EQ(store->add(item("mine", {1})), status::kSuccess);
  SecureItem first;
  ASSERT_EQ(store->copyMatching({kGeneric, {}, {}, {}}, SecureItemReturn::attributes, &first), status::kSuccess);
  EXPECT_EQ(first.service, "early");
  EXPECT_EQ(store->update(query("late"), {std::nullopt, "late", kWhenUnlocked, std::nullopt}), status::kSuccess);
  EXPECT_EQ(store->remove(query("mine")), status::kSuccess);
  EXPECT_EQ(unlocksAsked, 3);
  EXPECT_EQ(sessionsOpened, 1);
  g_dbus_connection_remove_filter(bus, filter);
  g_object_unref(bus);
  EXPECT_EQ(held(*store, "late"), (SecureItem{kGeneric, "late", kWhenUnlocked, Bytes{'s', 'e', 'c', 'r', 'e', 't'}}));
}

// An item that another program removes between the store's search and the call on it: its call
// is sent to a path the keyring no longer has. A removal counts it as removed; a read or an update
// finds nothing.
std::atomic<const char*> callSentElsewhere{nullptr};
GDBusMessage* sendElsewhere(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer) {
  const char* member = callSentElsewhere.load();
  if (incoming || member == nullptr || g_strcmp0(g_dbus_message_get_member(message), member) != 0) return message;
  GDBusMessage* moved = g_dbus_message_copy(message, nullptr);
  g_dbus_message_set_path(moved, "/org/freedesktop/secrets/collection/login/404");
  g_object_unref(message);
  return moved;
}

TEST(LibsecretSecureStore, AnItemRemovedElsewhereAfterTheSearchIsNotFoundOrCountsAsRemoved) {
  SKIP_WITHOUT_KEYRING();
  Keyring keyring;
  const auto store = keyring.make();
  ASSERT_EQ(store->add(item("raced", {1})), status::kSuccess);
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  const guint filter = g_dbus_connection_add_filter(bus, sendElsewhere, nullptr, nullptr);
  SecureItem read;
  const std::tuple<const char*, std::function<SecureStoreStatus()>, SecureStoreStatus> rows[] = {
      {"GetSecret", [&] { return store->copyMatching(query("raced"), SecureItemReturn::data, &read); }, status::kItemNotFound},
      {"SetSecret", [&] { return store->update(query("raced"), dataOnly({2})); }, status::kItemNotFound},
      {"Set", [&] { return store->update(query("raced"), {std::nullopt, std::nullopt, kWhenUnlocked, std::nullopt}); },
       status::kItemNotFound},
      {"Delete", [&] { return store->remove(query("raced")); }, status::kSuccess},
  };
  for (const auto& [member, call, answer] : rows) {
    callSentElsewhere = member;
    EXPECT_EQ(call(), answer) << member;
  }
  callSentElsewhere = nullptr;
  g_dbus_connection_remove_filter(bus, filter);
  g_object_unref(bus);
}

// --- The SQLite port's own promises -----------------------------------------------------------

// A new file is made private whatever the umask (with standard input closed, it opens as
// descriptor 0, like any other), and an existing file with a wider mode is narrowed. A file that
// is not a store cannot be decoded; a path that cannot be reached is not available until it can.
TEST(SqliteSecureStore, FileIsPrivateInWalModeAndMadeWhereItCanBe) {
  ScratchDirectory directory;
  const auto path = directory.path / "tunevo" / "store.sqlite3";
  const mode_t previous = ::umask(0);  // the widest umask must still give 0600
  const int input = ::dup(0);
  ASSERT_EQ(::close(0), 0);
  const auto made = platform::makeSqliteSecureStore(path);  // open while the -wal file is looked at
  const auto added = made->add(item("1", {1}));
  ::dup2(input, 0), ::close(input);
  ::umask(previous);
  ASSERT_EQ(added, status::kSuccess);
  const auto kPrivate = fs::perms::owner_read | fs::perms::owner_write;
  for (const auto& file : {path, fs::path(path.string() + "-wal")}) EXPECT_EQ(fs::status(file).permissions(), kPrivate) << file;

  const auto existing = directory.path / "existing.sqlite3";
  std::ofstream(existing) << std::string(4096, 'x');
  fs::permissions(existing, fs::perms::all);
  EXPECT_EQ(platform::makeSqliteSecureStore(existing)->add(item("1", {1})), status::kDecode);
  EXPECT_EQ(fs::status(existing).permissions(), kPrivate);

  const auto blocker = directory.path / "blocker";
  std::ofstream{blocker};  // a file where the store's directory should be
  const auto store = platform::makeSqliteSecureStore(blocker / "store.sqlite3");
  EXPECT_EQ(store->add(item("1", {1})), status::kNotAvailable);
  fs::remove(blocker);
  EXPECT_EQ(store->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(platform::makeSqliteSecureStore({})->remove(query("1")), status::kNotAvailable);
}

// A fault of the file system or of another process, met by a store in a child process (faults
// change process-wide state): a read of an existing item, an add, an update and a remove of it
// (a locked store: only the add, as every write waits for the lock the same way, for its whole
// busy timeout), then, once the fault is lifted, an add on the same store. Every call answers
// with a status; a failed call changes nothing, and nothing stored before is lost.
TEST(SqliteSecureStore, PortFaultsAnswerAStatusAndLoseNothing) {
  using Statuses = std::array<SecureStoreStatus, 5>;
  constexpr auto kNA = status::kNotAvailable;
  constexpr auto kBusy = status::kInteractionNotAllowed;
  ScratchDirectory directory;
  const auto path = directory.path / "store.sqlite3";
  sqlite3* locker = nullptr;
  rlimit fileSize{};
  struct Row { const char* name; std::function<void()> apply, lift; Statuses expected; };
  const Row rows[] = {
      {"locked by another connection",
       [&] { sqlite3_open_v2(path.c_str(), &locker, SQLITE_OPEN_READWRITE, nullptr), sqlite3_exec(locker, "BEGIN EXCLUSIVE", 0, 0, 0); },
       [&] { sqlite3_close_v2(locker); }, {status::kSuccess, kBusy, 0, 0, status::kSuccess}},
      {"disk full",
       [&] {
         std::signal(SIGXFSZ, SIG_IGN);
         ::getrlimit(RLIMIT_FSIZE, &fileSize);
         const rlimit full{0, fileSize.rlim_max};
         ::setrlimit(RLIMIT_FSIZE, &full);
       },
       [&] { ::setrlimit(RLIMIT_FSIZE, &fileSize); }, {status::kSuccess, kNA, kNA, kNA, status::kSuccess}},
  };
  const Bytes large(256 * 1024, 0x5a);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(path.string() + suffix);
    ASSERT_EQ(platform::makeSqliteSecureStore(path)->add(item("kept", {1, 2, 3})), status::kSuccess);
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      const auto store = platform::makeSqliteSecureStore(path);
      (void)store->copyMatching(query("kept"), SecureItemReturn::data, nullptr);
      row.apply();
      SecureItem found;
      Statuses answers{store->copyMatching(query("kept"), SecureItemReturn::data, &found), store->add(item("new", large)), 0, 0, 0};
      if (answers[1] != kBusy) answers[2] = store->update(query("kept"), dataOnly(large)), answers[3] = store->remove(query("kept"));
      row.lift();
      answers[4] = store->add(item("late", {4}));
      if (answers[0] == status::kSuccess && found.data != Bytes{1, 2, 3}) answers[0] = status::kDecode;
      ::_exit(::write(channel[1], &answers, sizeof answers) == sizeof answers ? 0 : 1);
    }
    ::close(channel[1]);
    Statuses answered{};
    pollfd ready{channel[0], POLLIN, 0};
    // A guard, not a measure: a store that hangs fails the test instead of stalling it.
    if (::poll(&ready, 1, 60'000) != 1) ::kill(child, SIGKILL);
    const bool read = ::read(channel[0], &answered, sizeof answered) == sizeof answered;
    ::close(channel[0]);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    ASSERT_TRUE(read) << "the store in the child never answered everything";
    EXPECT_EQ(answered, row.expected);
    const auto store = platform::makeSqliteSecureStore(path);
    EXPECT_EQ(held(*store, "kept"), item("kept", {1, 2, 3}));
    EXPECT_EQ(held(*store, "new"), std::nullopt);
    EXPECT_EQ(held(*store, "late"), item("late", {4}));
  }
}

// XDG_DATA_HOME when it is an absolute path, then HOME's .local/share; neither gives no path.
TEST(DefaultSecureStorePath, FollowsXdgThenHome) {
  struct Row {
    const char *xdgDataHome, *home, *expected;
  };
  const char* kHomes = "/home/u/.local/share/tunevo/secure-store.sqlite3";
  const Row rows[] = {{"/data", "/home/u", "/data/tunevo/secure-store.sqlite3"}, {nullptr, "/home/u", kHomes},
                      {"relative", "/home/u", kHomes}, {nullptr, nullptr, ""}, {nullptr, "relative", ""}};
  for (const Row& row : rows) {
    const auto path = platform::defaultSecureStorePath([&](const char* name) -> const char* {
      return std::string(name) == "XDG_DATA_HOME" ? row.xdgDataHome : std::string(name) == "HOME" ? row.home : nullptr;
    });
    EXPECT_EQ(path, fs::path(row.expected)) << (row.xdgDataHome ? row.xdgDataHome : "-") << " " << (row.home ? row.home : "-");
  }
}

}  // namespace
}  // namespace applogic
