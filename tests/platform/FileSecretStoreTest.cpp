#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "platform/SecretFile.h"
#include "platform/linux/FileSecretStore.h"
#include "platform/linux/SecretStoreChooser.h"
#include "support/ScopedContext.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

namespace zivora::platform {
namespace {

const SecretItemKey kKey{"host-app", "com.zivora.profiling.tsp", "zvp_idfv", ""};

mode_t modeOf(const std::filesystem::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 0777;
}

class FileSecretStoreTest : public ::testing::Test {
 protected:
  void overwrite(const std::string& text) {
    std::ofstream(store_.fileFor(kKey), std::ios::binary | std::ios::trunc) << text;
  }

  test::TempDir root_;
  test::ScopedContext scope_{HostOptions{.dataRoot = root_.path().string()}};
  FileSecretStore store_{root_.path() / "secrets"};
};

TEST_F(FileSecretStoreTest, KeepsItemsInPrivateFiles) {
  std::string data;
  EXPECT_EQ(store_.find(kKey, data), kSecretItemNotFound);
  EXPECT_EQ(store_.update(kKey, "x"), kSecretItemNotFound);
  EXPECT_EQ(store_.add(kKey, "value"), kSecretSuccess);
  EXPECT_EQ(store_.add(kKey, "other"), kSecretDuplicateItem);
  EXPECT_EQ(store_.update(kKey, std::string("new\0value", 9)), kSecretSuccess);
  EXPECT_EQ(store_.find(kKey, data), kSecretSuccess);
  EXPECT_EQ(data, std::string("new\0value", 9));
  EXPECT_EQ(modeOf(store_.fileFor(kKey)), 0600u);
  EXPECT_EQ(modeOf(root_.path() / "secrets"), 0700u);

  SecretItemKey otherApp = kKey;
  otherApp.application = "other-app";
  EXPECT_EQ(store_.find(otherApp, data), kSecretItemNotFound);

  EXPECT_EQ(store_.remove(kKey), kSecretSuccess);
  EXPECT_EQ(store_.remove(kKey), kSecretItemNotFound);
  EXPECT_FALSE(std::filesystem::exists(store_.fileFor(kKey)));
  // A file that holds another item is not taken for this one.
  overwrite(SecretFile{otherApp, "theirs"}.format());
  EXPECT_EQ(store_.find(kKey, data), kSecretItemNotFound);
}

TEST_F(FileSecretStoreTest, DamagedFilesReadAsAbsentAndAreRewritten) {
  ASSERT_EQ(store_.add(kKey, "value"), kSecretSuccess);
  std::string whole = SecretFile{kKey, "value"}.format();
  for (const std::string& damaged : {whole.substr(0, whole.size() - 1), whole.substr(0, 20),
                                     std::string("\x00\x01garbage", 9), std::string()}) {
    overwrite(damaged);
    scope_.log().clear();
    std::string data;
    EXPECT_EQ(store_.find(kKey, data), kSecretItemNotFound);
    EXPECT_TRUE(
        scope_.log().contains("[FileSecretStore] Unreadable secret file, treated as absent: " +
                              store_.fileFor(kKey).string()));
    EXPECT_EQ(store_.add(kKey, "fresh"), kSecretSuccess);
    EXPECT_EQ(store_.find(kKey, data), kSecretSuccess);
    EXPECT_EQ(data, "fresh");
  }
}

TEST(SecretFileTest, RoundTripsAnyBytesAndRejectsEveryTruncation) {
  SecretFile file{{"app", "svc", "acc", "grp"}, std::string("\x00\xff\n text", 8)};
  std::string text = file.format();
  auto parsed = SecretFile::parse(text);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->data, file.data);
  EXPECT_EQ(parsed->key.accessGroup, "grp");
  for (std::size_t length = 0; length < text.size(); ++length)
    EXPECT_FALSE(SecretFile::parse(text.substr(0, length))) << length;
  EXPECT_FALSE(SecretFile::parse(text + "extra\n"));
  EXPECT_FALSE(
      SecretFile::parse("zivora-secret 1\napplication 6\nservice \naccount \ngroup \ndata \n"));
  EXPECT_FALSE(
      SecretFile::parse("zivora-secret 1\napplication zz\nservice \naccount \ngroup \ndata \n"));
}

TEST(SecretStoreChooserTest, WithoutABusTheFileStoreIsChosenAndRemembered) {
  test::TempDir root;
  test::ScopedContext scope{HostOptions{.dataRoot = root.path().string()}};
  auto store = [&] {
    test::ScopedEnv noBus("DBUS_SESSION_BUS_ADDRESS",
                          "unix:path=" + (root.path() / "no-bus").string());
    return SecretStoreChooser::open(root.path());
  }();
  EXPECT_EQ(store->description(), "file store");
  EXPECT_TRUE(scope.log().contains("[ZVPSaveKeychain] Secrets are kept in the file store"));
  std::ifstream choice(SecretStoreChooser::choiceFile(root.path()));
  std::string remembered;
  choice >> remembered;
  EXPECT_EQ(remembered, "file");

  ASSERT_EQ(store->add(kKey, "kept"), kSecretSuccess);
  auto again = SecretStoreChooser::open(root.path());
  std::string data;
  EXPECT_EQ(again->find(kKey, data), kSecretSuccess);
  EXPECT_EQ(data, "kept");
  EXPECT_TRUE(scope.log().contains(
      "[ZVPSaveKeychain] Secrets are kept in the file store (as chosen before)"));
}

}  // namespace
}  // namespace zivora::platform
