#include "applogic/signin/client/ai_token_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "applogic/platform/sqlite_secure_store.h"
#include "applogic/signin/client/ai_exception.h"
#include "applogic/signin/client/ai_key_chain_data_storage.h"
#include "applogic/testing/in_memory_secure_store.h"
#include "applogic/testing/manual_clock.h"

namespace applogic::signin {
namespace {

namespace status = platform::secure_store_status;
using Call = testing::InMemorySecureStore::Call;
using platform::SecureItem;

class StorageTest : public ::testing::Test {
 protected:
  std::vector<std::string> services() const {
    std::vector<std::string> list;
    for (const auto& item : store_->items()) list.push_back(item.service.value_or("?"));
    return list;
  }
  std::vector<std::string> removedServices() const {
    std::vector<std::string> list;
    for (const auto& call : store_->calls()) {
      if (call.call == Call::remove) list.push_back(call.query.service.value_or("?"));
    }
    return list;
  }
  void storeAllFour() {
    AIError error;
    manager_.saveTokenToStorage(AICode("c", clock_), kTokenTypeCode, error);
    manager_.saveTokenToStorage(AIRefreshToken("r", clock_), kTokenTypeRefreshToken, error);
    manager_.saveTokenToStorage(AIProfileData(JsonObject{}, clock_), kTokenTypeProfileData, error);
    manager_.saveTokenToStorage(AIAccessToken("a", clock_.now(), clock_), kTokenTypeAccessToken, error);
    ASSERT_FALSE(error.hasErrorOccured());
  }

  testing::ManualClock clock_;
  std::shared_ptr<testing::InMemorySecureStore> store_ = std::make_shared<testing::InMemorySecureStore>();
  AIKeyChainDataStorage storage_{store_};
  AITokenManager manager_{AIDataStorageFactory(store_)};
};

TEST_F(StorageTest, ItemIsAGenericPasswordNamedByTypeReadableAfterFirstUnlock) {
  AIError error;
  const AICode code("c", clock_);
  storage_.storeData(code, true, error);
  ASSERT_EQ(store_->items().size(), 1u);
  EXPECT_EQ(store_->items()[0], (SecureItem{platform::SecureItemClass::genericPassword, "3",
                                            platform::SecureItemAccessible::afterFirstUnlock, code.getValue()}));
  EXPECT_EQ(storage_.retrieveData(kTokenTypeCode, error), code.getValue());
  EXPECT_EQ(storage_.retrieveData(kTokenTypeAccessToken, error), std::nullopt);
  EXPECT_FALSE(error.hasErrorOccured());
}

TEST_F(StorageTest, OverrideOnReplacesAndKeepsOneItemPerType) {
  AIError error;
  storage_.storeData(AIRefreshToken("old", clock_), true, error);
  storage_.storeData(AIRefreshToken("new", clock_), true, error);
  storage_.storeData(AICode("c", clock_), true, error);
  EXPECT_EQ(services(), (std::vector<std::string>{"1", "3"}));
  const auto token = manager_.getTokenFromStorage(kTokenTypeRefreshToken, error);
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(token->token(), "new");
  EXPECT_FALSE(error.hasErrorOccured());
}

TEST_F(StorageTest, OverrideOffLeavesTheExistingItemSilently) {
  AIError error;
  storage_.storeData(AIRefreshToken("old", clock_), true, error);
  storage_.storeData(AIRefreshToken("new", clock_), false, error);
  EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeRefreshToken, error)->token(), "old");
  EXPECT_FALSE(error.hasErrorOccured());
}

void store(AIKeyChainDataStorage& s, AIError& e, const platform::Clock& c) {
  s.storeData(AIAccessToken("b", c.now(), c), true, e);
}
void retrieve(AIKeyChainDataStorage& s, AIError& e, const platform::Clock&) { (void)s.retrieveData(2, e); }
void erase(AIKeyChainDataStorage& s, AIError& e, const platform::Clock&) { s.deleteData(2, e); }

// Each row on a store of its own.
TEST(StorageFailure, WritesCode5AndRaisesTheNamedException) {
  struct Row {
    const char* name;
    Call failing;
    platform::SecureStoreStatus status;
    bool itemExists;
    void (*run)(AIKeyChainDataStorage&, AIError&, const platform::Clock&);
    const char* exceptionName;  // null: nothing raised, nothing reported
    const char* message;
  };
  const Row rows[] = {
      {"AddDuplicate", Call::add, status::kDuplicateItem, false, store, "Error while adding a new Item",
        "The item already exists."},
      {"AddUnknown", Call::add, -1, false, store, "Error while adding a new Item", "Unknown Error Code."},
      {"Update", Call::update, status::kInteractionNotAllowed, true, store,
        "Error while updating the Data in the storage",
        "Interaction with the Security Server is not allowed."},
      // A lookup failing otherwise than "not found" writes nothing and reports nothing.
      {"LookupFails", Call::copyMatching, status::kAuthFailed, true, store, nullptr, nullptr},
      {"Retrieve", Call::copyMatching, status::kDecode, true, retrieve,
        "Error while retrieving a key chain Item", "Unable to decode the provided data."},
      {"RetrieveNotFound", Call::copyMatching, status::kItemNotFound, true, retrieve, nullptr, nullptr},
      {"Delete", Call::remove, status::kParam, true, erase,
        "Error while deleting the item from the key chain",
        "One or more parameters passed to the function were not valid."},
      {"DeleteNotFound", Call::remove, status::kItemNotFound, true, erase, nullptr, nullptr}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::ManualClock clock;
    const auto store = std::make_shared<testing::InMemorySecureStore>();
    AIKeyChainDataStorage storage(store);
    AIError error;
    if (row.itemExists) storage.storeData(AIAccessToken("a", clock.now(), clock), true, error);
    store->failWith(row.failing, row.status);
    if (row.exceptionName == nullptr) {
      EXPECT_NO_THROW(row.run(storage, error, clock));
      EXPECT_EQ(error, AIError());
      continue;
    }
    try {
      row.run(storage, error, clock);
      ADD_FAILURE() << "no exception";
    } catch (const AIStorageException& exception) {
      EXPECT_EQ(exception.name(), row.exceptionName);
      EXPECT_EQ(exception.reason(), "");
    }
    EXPECT_EQ(error, AIError(kAIDeviceError, row.message));
  }
}

TEST_F(StorageTest, DeletingATypeWithoutItemSucceedsSilently) {
  AIError error;
  EXPECT_NO_THROW(storage_.deleteData(kTokenTypeProfileData, error));
  manager_.deleteTokenFromStorageOfType(kTokenTypeProfileData, error);
  EXPECT_EQ(error, AIError());
}

TEST_F(StorageTest, WithoutStorageTheManagerReportsCode5) {
  const AITokenManager manager{AIDataStorageFactory(nullptr)};
  AIError error;
  EXPECT_EQ(manager.getTokenFromStorage(kTokenTypeAccessToken, error), nullptr);
  EXPECT_EQ(error, AIError(kAIDeviceError, "Unable to initialize storage."));
  AIError saving;
  manager.saveTokenToStorage(AICode("c", clock_), kTokenTypeCode, saving);
  EXPECT_EQ(saving, AIError(kAIDeviceError, "Unable to initialize storage."));
}

TEST_F(StorageTest, TokensComeBackAsTheClassThatStoredThem) {
  storeAllFour();
  AIError error;
  EXPECT_NE(dynamic_cast<AICode*>(manager_.getTokenFromStorage(kTokenTypeCode, error).get()), nullptr);
  EXPECT_NE(dynamic_cast<AIRefreshToken*>(manager_.getTokenFromStorage(kTokenTypeRefreshToken, error).get()), nullptr);
  EXPECT_NE(dynamic_cast<AIProfileData*>(manager_.getTokenFromStorage(kTokenTypeProfileData, error).get()), nullptr);
  EXPECT_NE(dynamic_cast<AIAccessToken*>(manager_.getTokenFromStorage(kTokenTypeAccessToken, error).get()), nullptr);
  EXPECT_FALSE(error.hasErrorOccured());
}

TEST_F(StorageTest, CorruptItemIsDeletedOnFirstReadWithoutError) {
  ASSERT_EQ(store_->add(SecureItem{platform::SecureItemClass::genericPassword, "2", std::nullopt,
                                   std::vector<std::uint8_t>{'{', 'x'}}),
            status::kSuccess);
  AIError error;
  EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeAccessToken, error), nullptr);
  EXPECT_EQ(error, AIError());
  EXPECT_TRUE(store_->items().empty());
  EXPECT_EQ(removedServices(), std::vector<std::string>{"2"});
}

TEST_F(StorageTest, ReadFailureYieldsNoTokenCode5AndDeletesTheItem) {
  storeAllFour();
  store_->failWith(Call::copyMatching, status::kInteractionNotAllowed);
  AIError error;
  EXPECT_NO_THROW(EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeAccessToken, error), nullptr));
  EXPECT_EQ(error, AIError(kAIDeviceError, "Interaction with the Security Server is not allowed."));
  EXPECT_EQ(removedServices(), std::vector<std::string>{"2"});
}

TEST_F(StorageTest, SaveAndDeleteFailuresAreSwallowedIntoTheErrorObject) {
  store_->failWith(Call::add, status::kAllocate);
  AIError saving;
  EXPECT_NO_THROW(manager_.saveTokenToStorage(AICode("c", clock_), kTokenTypeCode, saving));
  EXPECT_EQ(saving, AIError(kAIDeviceError, "Failed to allocate memory."));

  store_->failWith(Call::remove, status::kUnimplemented);
  AIError deleting;
  EXPECT_NO_THROW(manager_.deleteAlldependentTokenFromStorageToType(kTokenTypeCode, deleting));
  EXPECT_EQ(deleting, AIError(kAIDeviceError, "Function or operation not implemented."));
  EXPECT_EQ(removedServices(), (std::vector<std::string>{"3", "1", "4", "2"}));
}

TEST_F(StorageTest, DependentDeletionDeletesTheTypeAndEverythingAfterItInOrder) {
  struct Row {
    std::int32_t type;
    std::vector<std::string> deleted;
    std::vector<std::string> left;
  };
  const Row rows[] = {{kTokenTypeCode, {"3", "1", "4", "2"}, {}},
                      {kTokenTypeRefreshToken, {"1", "4", "2"}, {"3"}},
                      {kTokenTypeProfileData, {"4", "2"}, {"3", "1"}},
                      {kTokenTypeAccessToken, {"2"}, {"3", "1", "4"}},
                      {kTokenTypePlain, {}, {"3", "1", "4", "2"}},
                      {5, {}, {"3", "1", "4", "2"}}, {-1, {}, {"3", "1", "4", "2"}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.type);
    // A new store for each row.
    store_ = std::make_shared<testing::InMemorySecureStore>();
    manager_ = AITokenManager{AIDataStorageFactory(store_)};
    storeAllFour();
    AIError error;
    manager_.deleteAlldependentTokenFromStorageToType(row.type, error);
    EXPECT_EQ(removedServices(), row.deleted);
    EXPECT_EQ(services(), row.left);
    EXPECT_FALSE(error.hasErrorOccured());
  }
}

TEST(TokenManagerOverSqlite, AccessTokenRoundTripsThroughTheFile) {
  std::string pattern = (std::filesystem::temp_directory_path() / "applogic-tm-XXXXXX").string();
  const std::filesystem::path directory = ::mkdtemp(pattern.data());
  testing::ManualClock clock;
  {
    const AITokenManager manager{AIDataStorageFactory(platform::makeSqliteSecureStore(directory / "s.sqlite3"))};
    AIError error;
    manager.saveTokenToStorage(AIAccessToken("a1", {"profile"}, clock.now() + std::chrono::seconds(60), clock),
                               kTokenTypeAccessToken, error);
    manager.saveTokenToStorage(AIAccessToken("a2", {"profile"}, clock.now() + std::chrono::seconds(60), clock),
                               kTokenTypeAccessToken, error);
    ASSERT_FALSE(error.hasErrorOccured());
  }
  const AITokenManager reopened{AIDataStorageFactory(platform::makeSqliteSecureStore(directory / "s.sqlite3"))};
  AIError error;
  const auto token = reopened.getTokenFromStorage(kTokenTypeAccessToken, error);
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(token->token(), "a2");
  EXPECT_TRUE(dynamic_cast<const AIAccessToken&>(*token).isValidForScopes({"profile"}, clock));
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace applogic::signin
