#include "applogic/signin/client/ai_token_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "applogic/signin/client/ai_key_chain_data_storage.h"
#include "applogic/testing/in_memory_secure_store.h"
#include "applogic/testing/manual_clock.h"

namespace applogic::signin {
namespace {

namespace status = platform::secure_store_status;
using Call = testing::InMemorySecureStore::Call;

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
  AITokenManager manager_{AIDataStorageFactory(store_)};
};

// One generic password per kind, named by its type and readable after the first unlock; a new one
// replaces the old.
TEST_F(StorageTest, OneItemPerKindReadableAfterFirstUnlock) {
  AIError error;
  manager_.saveTokenToStorage(AIRefreshToken("old", clock_), kTokenTypeRefreshToken, error);
  const AIRefreshToken token("new", clock_);
  manager_.saveTokenToStorage(token, kTokenTypeRefreshToken, error);
  ASSERT_EQ(store_->items().size(), 1u);
  EXPECT_EQ(store_->items()[0], (platform::SecureItem{platform::SecureItemClass::genericPassword, "1",
                                                      platform::SecureItemAccessible::afterFirstUnlock, token.getValue()}));
  EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeRefreshToken, error)->token(), "new");
  EXPECT_FALSE(error.hasErrorOccured());
}

// An item that cannot be read now would fail every later read too: it is deleted; a corrupt one
// silently, a failing read with code 5.
TEST_F(StorageTest, UnreadableItemIsDeletedOnRead) {
  ASSERT_EQ(store_->add(platform::SecureItem{platform::SecureItemClass::genericPassword, "2", std::nullopt,
                                             std::vector<std::uint8_t>{'{', 'x'}}),
            status::kSuccess);
  AIError error;
  EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeAccessToken, error), nullptr);
  EXPECT_EQ(error, AIError());
  EXPECT_TRUE(store_->items().empty());

  storeAllFour();
  store_->failWith(Call::copyMatching, status::kInteractionNotAllowed);
  EXPECT_EQ(manager_.getTokenFromStorage(kTokenTypeRefreshToken, error), nullptr);
  EXPECT_EQ(error, AIError(kAIDeviceError, "Interaction with the Security Server is not allowed."));
  EXPECT_EQ(removedServices(), (std::vector<std::string>{"2", "1"}));
}

TEST_F(StorageTest, DependentDeletionDeletesTheTypeAndEverythingAfterItInOrderWhateverFails) {
  const std::pair<std::int32_t, std::vector<std::string>> rows[] = {{kTokenTypeCode, {"3", "1", "4", "2"}},
                                                                    {kTokenTypeRefreshToken, {"1", "4", "2"}},
                                                                    {kTokenTypeProfileData, {"4", "2"}},
                                                                    {kTokenTypeAccessToken, {"2"}},
                                                                    {kTokenTypePlain, {}}};
  for (const bool failing : {false, true}) {
    for (const auto& [type, deleted] : rows) {
      SCOPED_TRACE(type);
      store_ = std::make_shared<testing::InMemorySecureStore>();
      manager_ = AITokenManager{AIDataStorageFactory(store_)};
      storeAllFour();
      if (failing) store_->failWith(Call::remove, status::kUnimplemented);
      AIError error;
      manager_.deleteAlldependentTokenFromStorageToType(type, error);
      EXPECT_EQ(removedServices(), deleted);
      EXPECT_EQ(services().size(), failing ? 4u : 4u - deleted.size());
      EXPECT_EQ(error.hasErrorOccured(), failing && !deleted.empty());
    }
  }
}

}  // namespace
}  // namespace applogic::signin
