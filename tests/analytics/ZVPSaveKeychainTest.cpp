#include <gtest/gtest.h>

#include "analytics/ZVPSaveKeychain.h"
#include "support/MemorySecretStore.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kService[] = "svc";

class ZVPSaveKeychainTest : public ::testing::Test {
 protected:
  std::shared_ptr<test::MemorySecretStore> secrets_ = std::make_shared<test::MemorySecretStore>();
  test::TempDir root_;
  test::ScopedContext scope_{
      HostOptions{.dataRoot = root_.path().string(), .applicationName = "host-app"},
      RuntimeOptions{.secretStore = secrets_}};
};

TEST_F(ZVPSaveKeychainTest, SavesReadsUpdatesAndDeletes) {
  ZVPKeychainError error;
  EXPECT_TRUE(ZVPSaveKeychain::saveItem("first", "key", kService, &error));
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("key", kService), "first");
  EXPECT_TRUE(ZVPSaveKeychain::saveItem("zweite Ä", "key", kService));
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("key", kService), "zweite Ä");
  EXPECT_EQ(ZVPSaveKeychain::rawDataForKey("key", kService), "zweite Ä");
  // Items carry the application's name; access groups keep them apart.
  EXPECT_EQ(ZVPSaveKeychain::_baseQueryDictionaryForKey("key", kService, "").application,
            "host-app");
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("key", kService, "group"), std::nullopt);
  EXPECT_TRUE(ZVPSaveKeychain::deleteItemForKey("key", kService));
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("key", kService, &error), std::nullopt);
  EXPECT_EQ(error.code, -25300);
  EXPECT_EQ(error.domain, "com.zivora.profiling.domain");
  EXPECT_EQ(error.description,
            "Item with key 'key' for service 'svc' could not be found in the keychain.");
  EXPECT_FALSE(ZVPSaveKeychain::deleteItemForKey("gone", kService, &error));
  EXPECT_EQ(error.code, -25300);
  EXPECT_EQ(error.description,
            "Could not delete item with key 'gone' for service 'svc' from the keychain because it "
            "does not exist.");
}

TEST_F(ZVPSaveKeychainTest, StatusCodesHaveTheirTexts) {
  EXPECT_EQ(ZVPSaveKeychain::_errorForResultCode(0, "k", "s"), std::nullopt);
  EXPECT_EQ(ZVPSaveKeychain::_errorForResultCode(-25299, "k", "s")->description,
            "Item with key 'k' for service 's' already exists in the keychain.");
  EXPECT_EQ(
      ZVPSaveKeychain::_errorForResultCode(-25308, "k", "s")->description,
      "Interaction with key 'k' for service 's' was not allowed. It is possible that the item "
      "is only accessible when the device is unlocked and this query is happening when the "
      "app is in the background. Double-check your item permissions.");
  EXPECT_EQ(ZVPSaveKeychain::_errorForResultCode(-25291, "k", "s")->description,
            "This is a undefined error. Check SecBase.h or Apple's iOS Developer Library for more "
            "information on this Keychain Services error code.");

  secrets_->failWith(-25308);
  ZVPKeychainError error;
  EXPECT_FALSE(ZVPSaveKeychain::saveItem("v", "k", kService, &error));
  EXPECT_EQ(error.code, -25308);
}

TEST_F(ZVPSaveKeychainTest, EmptyArgumentsAreReportedAndAnswerNothing) {
  EXPECT_FALSE(ZVPSaveKeychain::saveItem("v", "k", ""));
  EXPECT_FALSE(ZVPSaveKeychain::deleteItemForKey("", kService));
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("k", ""), std::nullopt);
  auto exceptions = scope_.analytics().exceptions();
  ASSERT_EQ(exceptions.size(), 3u);
  EXPECT_EQ(exceptions[0].className, "ZVPSaveKeychain");
  EXPECT_EQ(exceptions[0].method, "saveItem");
  EXPECT_EQ(exceptions[0].reason,
            "+[ZVPSaveKeychain saveItem:forKey:forService:inAccessGroup:withAccessibility:error:] "
            "service argument cannot be empty");
  EXPECT_EQ(exceptions[1].method, "deleteItemForKey");
  EXPECT_EQ(exceptions[2].method, "_itemAttributesAndDataForKey");
  EXPECT_EQ(secrets_->writes(), 0);
}

TEST_F(ZVPSaveKeychainTest, BytesThatAreNotTextReadAsNothingWithAnError) {
  secrets_->put(ZVPSaveKeychain::_baseQueryDictionaryForKey("k", kService, ""), "\xff\xfe");
  ZVPKeychainError error;
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("k", kService, &error), std::nullopt);
  EXPECT_EQ(error.domain, TSPSaveKeychainErrorDomain);
  EXPECT_FALSE(error.description.empty());
  EXPECT_EQ(ZVPSaveKeychain::rawDataForKey("k", kService), "\xff\xfe");
}

TEST(ZVPSaveKeychainWithoutContextTest, AnswersNothing) {
  EXPECT_FALSE(ZVPSaveKeychain::saveItem("v", "k", kService));
  EXPECT_EQ(ZVPSaveKeychain::itemForKey("k", kService), std::nullopt);
}

}  // namespace
}  // namespace zivora
