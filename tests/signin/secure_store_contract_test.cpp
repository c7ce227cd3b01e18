// One contract, every SecureStore: the in-memory double, the SQLite port and the keyring port must
// agree. The keyring runs only inside scripts/with-test-keyring (a private bus and a throw-away
// keyring); elsewhere its tests skip, or fail when APPLOGIC_REQUIRE_KEYRING=1.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include "applogic/platform/libsecret_secure_store.h"
#include "applogic/platform/platform.h"
#include "applogic/platform/secure_store.h"
#include "applogic/platform/sqlite_secure_store.h"
#include "applogic/testing/in_memory_secure_store.h"

namespace applogic {
namespace {

namespace status = platform::secure_store_status;
using platform::SecureItem;
using platform::SecureItemAccessible;
using platform::SecureItemClass;
using platform::SecureItemReturn;
using Bytes = std::vector<std::uint8_t>;

SecureItem item(std::string service, Bytes data) {
  return SecureItem{SecureItemClass::genericPassword, std::move(service), SecureItemAccessible::afterFirstUnlock,
                    std::move(data)};
}

SecureItem query(std::string service) {
  return SecureItem{SecureItemClass::genericPassword, std::move(service), std::nullopt, std::nullopt};
}

SecureItem dataOnly(Bytes data) { return SecureItem{std::nullopt, std::nullopt, std::nullopt, std::move(data)}; }

/// A fresh directory per test, removed afterwards.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "applogic-store-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

struct InMemory {
  std::shared_ptr<platform::SecureStore> make() { return std::make_shared<testing::InMemorySecureStore>(); }
};

struct Sqlite {
  ScratchDirectory directory;
  std::shared_ptr<platform::SecureStore> make() {
    return platform::makeSqliteSecureStore(directory.path() / "sub" / "store.sqlite3");
  }
};

bool environmentSays(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && std::string_view(value) == "1";
}

/// Items of one test live under a store name of their own, removed afterwards: tests of several
/// processes share the keyring daemon.
struct Keyring {
  std::string name = "applogic-test-" + std::to_string(::getpid()) + "-" + std::to_string(next++);
  std::shared_ptr<platform::SecureStore> store;

  std::shared_ptr<platform::SecureStore> make() { return store = platform::makeLibsecretSecureStore(name); }
  ~Keyring() {
    if (store) (void)store->remove(SecureItem{});
  }

  /// Why the keyring tests cannot run here, if they cannot.
  static std::optional<std::string> unavailable() {
    if (!environmentSays("APPLOGIC_TEST_KEYRING")) {
      return "no test keyring: run under scripts/with-test-keyring (tests never use the desktop's keyring)";
    }
    const auto probe = platform::makeLibsecretSecureStore("applogic-test-probe");
    if (const auto answered = probe->copyMatching(SecureItem{}, SecureItemReturn::attributes, nullptr);
        answered != status::kSuccess && answered != status::kItemNotFound) {
      return "the test keyring answers status " + std::to_string(answered);
    }
    return std::nullopt;
  }

  static inline std::atomic<int> next{0};
};

/// Skips a keyring test where no test keyring runs; a failure when CI requires the keyring.
#define SKIP_WITHOUT_KEYRING()                                                                  \
  do {                                                                                          \
    if (const auto reason = Keyring::unavailable()) {                                           \
      if (environmentSays("APPLOGIC_REQUIRE_KEYRING")) FAIL() << "keyring required: " << *reason; \
      GTEST_SKIP() << *reason;                                                                  \
    }                                                                                           \
  } while (false)

template <class Port>
class SecureStoreContract : public ::testing::Test {
 protected:
  void SetUp() override {
    if constexpr (std::is_same_v<Port, Keyring>) SKIP_WITHOUT_KEYRING();
  }

  Bytes read(const std::string& service) {
    SecureItem found;
    EXPECT_EQ(store_->copyMatching(query(service), SecureItemReturn::data, &found), status::kSuccess);
    return found.data.value_or(Bytes{});
  }

  Port port_;
  std::shared_ptr<platform::SecureStore> store_ = port_.make();
};

using Ports = ::testing::Types<InMemory, Sqlite, Keyring>;
struct PortName {
  template <class Port>
  static std::string GetName(int) {
    if constexpr (std::is_same_v<Port, InMemory>) return "InMemory";
    if constexpr (std::is_same_v<Port, Sqlite>) return "Sqlite";
    return "Keyring";
  }
};
TYPED_TEST_SUITE(SecureStoreContract, Ports, PortName);

TYPED_TEST(SecureStoreContract, AddedItemIsFoundByClassAndService) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1, 2, 3})), status::kSuccess);
  ASSERT_EQ(store.add(item("2", {9})), status::kSuccess);
  EXPECT_EQ(this->read("1"), (Bytes{1, 2, 3}));
  EXPECT_EQ(this->read("2"), (Bytes{9}));

  SecureItem attributes;
  ASSERT_EQ(store.copyMatching(query("1"), SecureItemReturn::attributes, &attributes), status::kSuccess);
  EXPECT_EQ(attributes, (SecureItem{SecureItemClass::genericPassword, "1", SecureItemAccessible::afterFirstUnlock,
                                    std::nullopt}));
  EXPECT_EQ(store.copyMatching(query("3"), SecureItemReturn::data, &attributes), status::kItemNotFound);
  EXPECT_EQ(store.copyMatching(query("1"), SecureItemReturn::data, nullptr), status::kSuccess);
}

TYPED_TEST(SecureStoreContract, EmptyAndBinaryDataRoundTrip) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("empty", {})), status::kSuccess);
  ASSERT_EQ(store.add(SecureItem{SecureItemClass::genericPassword, "none", std::nullopt, std::nullopt}),
            status::kSuccess);
  ASSERT_EQ(store.add(item("binary", {0, 0xff, 0, 'x'})), status::kSuccess);
  EXPECT_EQ(this->read("empty"), Bytes{});
  EXPECT_EQ(this->read("none"), Bytes{});
  EXPECT_EQ(this->read("binary"), (Bytes{0, 0xff, 0, 'x'}));
}

TYPED_TEST(SecureStoreContract, SecondAddOfTheSameServiceIsADuplicate) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(store.add(item("1", {2})), status::kDuplicateItem);
  EXPECT_EQ(this->read("1"), Bytes{1});
}

TYPED_TEST(SecureStoreContract, MalformedCallsAreBadParameters) {
  auto& store = *this->store_;
  EXPECT_EQ(store.add(SecureItem{std::nullopt, "1", std::nullopt, Bytes{1}}), status::kParam);
  EXPECT_EQ(store.add(SecureItem{SecureItemClass::genericPassword, std::nullopt, std::nullopt, Bytes{1}}),
            status::kParam);
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(store.copyMatching(dataOnly({1}), SecureItemReturn::data, nullptr), status::kParam);
  EXPECT_EQ(store.update(query("1"), SecureItem{SecureItemClass::genericPassword, std::nullopt, std::nullopt, Bytes{2}}),
            status::kParam);
  EXPECT_EQ(store.update(query("1"), SecureItem{}), status::kParam);
  EXPECT_EQ(store.remove(dataOnly({1})), status::kParam);
  EXPECT_EQ(this->read("1"), Bytes{1});
}

// An update replaces the matching item's data only; moved onto another item's service it
// collides and changes nothing.
TYPED_TEST(SecureStoreContract, UpdateReplacesTheMatchingItemOnlyAndNeverCollides) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  ASSERT_EQ(store.add(item("2", {2})), status::kSuccess);
  EXPECT_EQ(store.update(query("1"), SecureItem{std::nullopt, "2", std::nullopt, Bytes{9}}), status::kDuplicateItem);
  EXPECT_EQ(this->read("1"), Bytes{1});
  EXPECT_EQ(this->read("2"), Bytes{2});
  EXPECT_EQ(store.update(query("1"), dataOnly({7, 7})), status::kSuccess);
  EXPECT_EQ(this->read("1"), (Bytes{7, 7}));
  EXPECT_EQ(this->read("2"), Bytes{2});
  EXPECT_EQ(store.update(query("3"), dataOnly({3})), status::kItemNotFound);
}

TYPED_TEST(SecureStoreContract, RemoveDeletesOnceThenFindsNothing) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  ASSERT_EQ(store.add(item("2", {2})), status::kSuccess);
  EXPECT_EQ(store.remove(query("1")), status::kSuccess);
  EXPECT_EQ(store.remove(query("1")), status::kItemNotFound);
  EXPECT_EQ(store.copyMatching(query("1"), SecureItemReturn::data, nullptr), status::kItemNotFound);
  EXPECT_EQ(this->read("2"), Bytes{2});
  EXPECT_EQ(store.add(item("1", {3})), status::kSuccess);
  EXPECT_EQ(this->read("1"), Bytes{3});
}

TYPED_TEST(SecureStoreContract, QueryWithoutServiceMatchesTheFirstAdded) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("b", {2})), status::kSuccess);
  ASSERT_EQ(store.add(item("a", {1})), status::kSuccess);
  SecureItem found;
  ASSERT_EQ(store.copyMatching(SecureItem{SecureItemClass::genericPassword, std::nullopt, std::nullopt, std::nullopt},
                               SecureItemReturn::attributes, &found),
            status::kSuccess);
  EXPECT_EQ(found.service, "b");
}

// --- The keyring port's own promises ----------------------------------------------------------

TEST(LibsecretSecureStore, StoresOfOneNameShareItemsAndOtherNamesAreApart) {
  SKIP_WITHOUT_KEYRING();
  Keyring mine;
  Keyring other;
  const auto first = mine.make();
  const auto second = platform::makeLibsecretSecureStore(mine.name);  // its own session with the daemon
  const auto stranger = other.make();
  ASSERT_EQ(first->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(second->add(item("1", {2})), status::kDuplicateItem);
  ASSERT_EQ(second->update(query("1"), dataOnly({5})), status::kSuccess);
  SecureItem found;
  ASSERT_EQ(first->copyMatching(query("1"), SecureItemReturn::data, &found), status::kSuccess);
  EXPECT_EQ(found.data, Bytes{5});

  EXPECT_EQ(stranger->copyMatching(query("1"), SecureItemReturn::data, nullptr), status::kItemNotFound);
  ASSERT_EQ(stranger->add(item("1", {7})), status::kSuccess);
  EXPECT_EQ(stranger->remove(query("1")), status::kSuccess);
  EXPECT_EQ(second->copyMatching(query("1"), SecureItemReturn::data, &found), status::kSuccess);
  EXPECT_EQ(found.data, Bytes{5});
}

TEST(LibsecretSecureStore, CallsFromSeveralThreadsAtOnceAllLand) {
  SKIP_WITHOUT_KEYRING();
  Keyring keyring;
  const auto shared = keyring.make();
  constexpr int kThreads = 4;
  constexpr int kEach = 5;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    // Half the threads share one store, the others have one each: both kinds of concurrency.
    const auto store = t % 2 == 0 ? shared : platform::makeLibsecretSecureStore(keyring.name);
    threads.emplace_back([store, t, &failures] {
      for (int i = 0; i < kEach; ++i) {
        const std::string service = std::to_string(t) + "-" + std::to_string(i);
        failures += store->add(item(service, {static_cast<std::uint8_t>(i)})) != status::kSuccess;
        failures += store->update(query(service), dataOnly({static_cast<std::uint8_t>(i + 1)})) != status::kSuccess;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kEach; ++i) {
      SecureItem found;
      EXPECT_EQ(shared->copyMatching(query(std::to_string(t) + "-" + std::to_string(i)), SecureItemReturn::data, &found),
                status::kSuccess);
      EXPECT_EQ(found.data, Bytes{static_cast<std::uint8_t>(i + 1)});
    }
  }
}

// The host's choice of the keyring holds when no keyring can be reached: calls answer "not
// available" and nothing is written to the SQLite file instead. Run in a child process, whose
// session bus address can still be chosen before GLib connects.
TEST(LibsecretSecureStore, ChosenKeyringOutOfReachAnswersNotAvailableWithoutFallingBack) {
  ScratchDirectory directory;
  const auto sqliteFile = directory.path() / "store.sqlite3";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (directory.path() / "no-bus").string()).c_str(), 1);
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
  EXPECT_FALSE(std::filesystem::exists(sqliteFile));
}

// --- The SQLite port's own promises -----------------------------------------------------------

mode_t modeOf(const std::filesystem::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 0777;
}

// A new file is made private whatever the umask, and an existing file with a wider mode is narrowed.
TEST(SqliteSecureStore, FileIsPrivateAndInWalMode) {
  ScratchDirectory directory;
  const auto path = directory.path() / "tunevo" / "store.sqlite3";
  const auto store = platform::makeSqliteSecureStore(path);
  const mode_t previous = ::umask(0);  // the widest umask must still give 0600
  const auto added = store->add(item("1", {1}));
  ::umask(previous);
  ASSERT_EQ(added, status::kSuccess);
  EXPECT_EQ(modeOf(path), 0600u);
  const auto wal = std::filesystem::path(path.string() + "-wal");
  ASSERT_TRUE(std::filesystem::exists(wal));
  EXPECT_EQ(modeOf(wal), 0600u);

  const auto existing = directory.path() / "existing.sqlite3";
  { std::ofstream{existing}; }
  std::filesystem::permissions(existing, std::filesystem::perms::all);
  ASSERT_EQ(platform::makeSqliteSecureStore(existing)->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(modeOf(existing), 0600u);
}

TEST(SqliteSecureStore, ItemsPersistAndAreSharedBetweenConnections) {
  ScratchDirectory directory;
  const auto path = directory.path() / "store.sqlite3";
  const auto first = platform::makeSqliteSecureStore(path);
  const auto second = platform::makeSqliteSecureStore(path);
  ASSERT_EQ(first->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(second->add(item("1", {2})), status::kDuplicateItem);
  ASSERT_EQ(second->update(query("1"), dataOnly({5})), status::kSuccess);
  SecureItem found;
  ASSERT_EQ(first->copyMatching(query("1"), SecureItemReturn::data, &found), status::kSuccess);
  EXPECT_EQ(found.data, Bytes{5});
}

TEST(SqliteSecureStore, WritersInTwoProcessesLoseNothing) {
  ScratchDirectory directory;
  const auto path = directory.path() / "store.sqlite3";
  constexpr int kEach = 40;
  ASSERT_EQ(platform::makeSqliteSecureStore(path)->add(item("seed", {})), status::kSuccess);
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  const std::string prefix = child == 0 ? "child-" : "parent-";
  const auto store = platform::makeSqliteSecureStore(path);
  int failures = 0;
  for (int i = 0; i < kEach; ++i) {
    failures += store->add(item(prefix + std::to_string(i), {static_cast<std::uint8_t>(i)})) != status::kSuccess;
    failures += store->update(query("seed"), dataOnly({static_cast<std::uint8_t>(i)})) != status::kSuccess;
  }
  if (child == 0) ::_exit(failures == 0 ? 0 : 1);
  int childStatus = 0;
  ASSERT_EQ(::waitpid(child, &childStatus, 0), child);
  EXPECT_TRUE(WIFEXITED(childStatus) && WEXITSTATUS(childStatus) == 0);
  EXPECT_EQ(failures, 0);
  for (const char* who : {"child-", "parent-"}) {
    for (int i = 0; i < kEach; ++i) {
      EXPECT_EQ(store->copyMatching(query(who + std::to_string(i)), SecureItemReturn::data, nullptr), status::kSuccess);
    }
  }
}

TEST(SqliteSecureStore, AFileThatIsNotAStoreCannotBeDecoded) {
  ScratchDirectory directory;
  const auto path = directory.path() / "store.sqlite3";
  {
    std::ofstream out(path, std::ios::binary);
    out << std::string(4096, 'x');
  }
  EXPECT_EQ(platform::makeSqliteSecureStore(path)->add(item("1", {1})), status::kDecode);
}

TEST(SqliteSecureStore, UnreachablePathIsNotAvailableUntilItBecomesReachable) {
  ScratchDirectory directory;
  const auto blocker = directory.path() / "blocker";
  { std::ofstream{blocker}; }  // a file where the store's directory should be
  const auto store = platform::makeSqliteSecureStore(blocker / "store.sqlite3");
  EXPECT_EQ(store->add(item("1", {1})), status::kNotAvailable);
  std::filesystem::remove(blocker);
  EXPECT_EQ(store->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(platform::makeSqliteSecureStore({})->remove(query("1")), status::kNotAvailable);
}

// Root writes through file modes by these capabilities; without them it meets the modes as any
// user does. Only capabilities the process holds can come back.
bool setFileModeOverrides(bool on) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2]{};
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
    auto& set = data[capability / 32];
    const std::uint32_t bit = 1u << (capability % 32);
    set.effective = on ? (set.effective | (bit & set.permitted)) : (set.effective & ~bit);
  }
  return ::syscall(SYS_capset, &header, data) == 0;
}

// A fault of the file system or of another process, met by a store in a child process (faults
// change process-wide state): a read of an existing item, an add, an update and a remove of it,
// then, once the fault is lifted, an add on the same store. Every call answers at once (a locked
// store within its busy timeout) with a status; a failed call changes nothing, and nothing stored
// before is lost.
TEST(SqliteSecureStore, PortFaultsAnswerAStatusAndLoseNothing) {
  using Statuses = std::array<platform::SecureStoreStatus, 5>;
  constexpr auto kNA = status::kNotAvailable;
  constexpr auto kBusy = status::kInteractionNotAllowed;
  ScratchDirectory directory;
  const auto folder = directory.path() / "store";
  const auto path = folder / "store.sqlite3";
  sqlite3* locker = nullptr;
  rlimit fileSize{};
  struct Row {
    const char* name;
    bool beforeOpening;
    std::function<void()> apply;
    std::function<void()> lift;
    Statuses expected;
  };
  const Row rows[] = {
      {"read-only file", true,
       [&] {
         std::filesystem::permissions(path, std::filesystem::perms::owner_read);
         setFileModeOverrides(false);
       },
       [&] {
         setFileModeOverrides(true);
         std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
       },
       {kNA, kNA, kNA, kNA, status::kSuccess}},
      {"read-only directory", true,
       [&] {
         std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
         setFileModeOverrides(false);
       },
       [&] {
         setFileModeOverrides(true);
         std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
       },
       {kNA, kNA, kNA, kNA, status::kSuccess}},
      {"locked by another connection", false,
       [&] {
         sqlite3_open_v2(path.c_str(), &locker, SQLITE_OPEN_READWRITE, nullptr);
         sqlite3_exec(locker, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
       },
       [&] { sqlite3_close_v2(locker); },
       {status::kSuccess, kBusy, kBusy, kBusy, status::kSuccess}},
      {"disk full", false,
       [&] {
         std::signal(SIGXFSZ, SIG_IGN);
         ::getrlimit(RLIMIT_FSIZE, &fileSize);
         const rlimit full{0, fileSize.rlim_max};
         ::setrlimit(RLIMIT_FSIZE, &full);
       },
       [&] { ::setrlimit(RLIMIT_FSIZE, &fileSize); },
       {status::kSuccess, kNA, kNA, kNA, status::kSuccess}},
  };
  const Bytes large(256 * 1024, 0x5a);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove_all(folder);
    ASSERT_EQ(platform::makeSqliteSecureStore(path)->add(item("kept", {1, 2, 3})), status::kSuccess);
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      const auto store = platform::makeSqliteSecureStore(path);
      if (!row.beforeOpening) (void)store->copyMatching(query("kept"), SecureItemReturn::data, nullptr);
      row.apply();
      SecureItem found;
      Statuses answered{store->copyMatching(query("kept"), SecureItemReturn::data, &found),
                        store->add(item("new", large)), store->update(query("kept"), dataOnly(large)),
                        store->remove(query("kept")), 0};
      row.lift();
      answered[4] = store->add(item("late", {4}));
      if (answered[0] == status::kSuccess && found.data != Bytes{1, 2, 3}) answered[0] = status::kDecode;
      const bool written = ::write(channel[1], answered.data(), sizeof answered) == sizeof answered;
      ::_exit(written ? 0 : 1);
    }
    ::close(channel[1]);
    Statuses answered{};
    pollfd ready{channel[0], POLLIN, 0};
    // A guard, not a measure: a store that hangs fails the test instead of stalling it.
    const bool answeredInTime = ::poll(&ready, 1, 60'000) == 1;
    if (!answeredInTime) ::kill(child, SIGKILL);
    const bool read = answeredInTime && ::read(channel[0], answered.data(), sizeof answered) == sizeof answered;
    ::close(channel[0]);
    int childStatus = 0;
    ASSERT_EQ(::waitpid(child, &childStatus, 0), child);
    ASSERT_TRUE(read) << "the store in the child never answered everything";
    EXPECT_EQ(answered, row.expected);

    const auto store = platform::makeSqliteSecureStore(path);
    SecureItem found;
    EXPECT_EQ(store->copyMatching(query("kept"), SecureItemReturn::data, &found), status::kSuccess);
    EXPECT_EQ(found.data, (Bytes{1, 2, 3}));
    EXPECT_EQ(store->copyMatching(query("new"), SecureItemReturn::data, nullptr), status::kItemNotFound);
    EXPECT_EQ(store->copyMatching(query("late"), SecureItemReturn::data, nullptr), status::kSuccess);
  }
}

// XDG_DATA_HOME when it is an absolute path, then HOME's .local/share; neither gives no path.
TEST(DefaultSecureStorePath, FollowsXdgThenHome) {
  struct Row {
    const char* xdgDataHome;
    const char* home;
    const char* expected;
  };
  const Row rows[] = {{"/data", "/home/u", "/data/tunevo/secure-store.sqlite3"},
                      {nullptr, "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      {"", "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      {"relative", "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      {nullptr, nullptr, ""}, {nullptr, "relative", ""}};
  for (const Row& row : rows) {
    const auto path = platform::defaultSecureStorePath([&](const char* name) -> const char* {
      const std::string_view key(name);
      return key == "XDG_DATA_HOME" ? row.xdgDataHome : key == "HOME" ? row.home : nullptr;
    });
    EXPECT_EQ(path, std::filesystem::path(row.expected))
        << (row.xdgDataHome ? row.xdgDataHome : "(unset)") << " " << (row.home ? row.home : "(unset)");
  }
}

}  // namespace
}  // namespace applogic
