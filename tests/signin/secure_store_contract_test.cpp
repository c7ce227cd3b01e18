// One contract, every SecureStore: the in-memory double and the SQLite port must agree.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

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

template <class Port>
class SecureStoreContract : public ::testing::Test {
 protected:
  Bytes read(const std::string& service) {
    SecureItem found;
    EXPECT_EQ(store_->copyMatching(query(service), SecureItemReturn::data, &found), status::kSuccess);
    return found.data.value_or(Bytes{});
  }

  Port port_;
  std::shared_ptr<platform::SecureStore> store_ = port_.make();
};

using Ports = ::testing::Types<InMemory, Sqlite>;
TYPED_TEST_SUITE(SecureStoreContract, Ports);

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

TYPED_TEST(SecureStoreContract, UpdateReplacesTheMatchingItemOnly) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  ASSERT_EQ(store.add(item("2", {2})), status::kSuccess);
  EXPECT_EQ(store.update(query("1"), dataOnly({7, 7})), status::kSuccess);
  EXPECT_EQ(this->read("1"), (Bytes{7, 7}));
  EXPECT_EQ(this->read("2"), Bytes{2});
  EXPECT_EQ(store.update(query("3"), dataOnly({3})), status::kItemNotFound);
}

TYPED_TEST(SecureStoreContract, UpdateOntoAnotherServiceCollidesAndChangesNothing) {
  auto& store = *this->store_;
  ASSERT_EQ(store.add(item("1", {1})), status::kSuccess);
  ASSERT_EQ(store.add(item("2", {2})), status::kSuccess);
  EXPECT_EQ(store.update(query("1"), SecureItem{std::nullopt, "2", std::nullopt, Bytes{9}}), status::kDuplicateItem);
  EXPECT_EQ(this->read("1"), Bytes{1});
  EXPECT_EQ(this->read("2"), Bytes{2});
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

// --- The SQLite port's own promises -----------------------------------------------------------

mode_t modeOf(const std::filesystem::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 0777;
}

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
}

TEST(SqliteSecureStore, ExistingFileWithWiderModeIsNarrowed) {
  ScratchDirectory directory;
  const auto path = directory.path() / "store.sqlite3";
  { std::ofstream{path}; }
  std::filesystem::permissions(path, std::filesystem::perms::all);
  ASSERT_EQ(platform::makeSqliteSecureStore(path)->add(item("1", {1})), status::kSuccess);
  EXPECT_EQ(modeOf(path), 0600u);
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

struct PathCase {
  const char* xdgDataHome;
  const char* home;
  const char* expected;
};

class DefaultSecureStorePath : public ::testing::TestWithParam<PathCase> {};

TEST_P(DefaultSecureStorePath, FollowsXdgThenHome) {
  const auto& row = GetParam();
  const auto path = platform::defaultSecureStorePath([&](const char* name) -> const char* {
    const std::string_view key(name);
    return key == "XDG_DATA_HOME" ? row.xdgDataHome : key == "HOME" ? row.home : nullptr;
  });
  EXPECT_EQ(path, std::filesystem::path(row.expected));
}

INSTANTIATE_TEST_SUITE_P(
    Environments, DefaultSecureStorePath,
    ::testing::Values(PathCase{"/data", "/home/u", "/data/tunevo/secure-store.sqlite3"},
                      PathCase{nullptr, "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      PathCase{"", "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      PathCase{"relative", "/home/u", "/home/u/.local/share/tunevo/secure-store.sqlite3"},
                      PathCase{nullptr, nullptr, ""}, PathCase{nullptr, "relative", ""}));

}  // namespace
}  // namespace applogic
