#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "platform/UserDefaults.h"
#include "platform/linux/KeyValueDatabase.h"
#include "support/Files.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"

namespace zivora::platform {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class KeyValueDatabaseTest : public ::testing::Test {
 protected:
  fs::path file() const { return dir_.path() / "Preferences" / "defaults.sqlite"; }

  UserDefaults suite(std::string name) { return UserDefaults(database_, std::move(name)); }

  void open() {
    database_ = KeyValueDatabase::open(file());
    ASSERT_NE(database_, nullptr);
  }

  // Closes the database and opens it again, as a restarted process would.
  void restart() {
    database_.reset();
    open();
  }

  // The databases moved aside, without their journals.
  std::vector<fs::path> setAside() const {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(file().parent_path())) {
      auto name = entry.path().filename().string();
      bool journal = name.ends_with("-wal") || name.ends_with("-shm");
      if (name.starts_with("defaults.sqlite.corrupt-") && !journal) found.push_back(entry.path());
    }
    return found;
  }

  bool loggedWarningNaming(const fs::path& path) {
    for (const auto& line : scope_.log().lines()) {
      if (line.level == LogLevel::Warning && line.text.find(path.string()) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  test::TempDir dir_;
  test::ScopedContext scope_;
  std::shared_ptr<KeyValueDatabase> database_;
};

TEST_F(KeyValueDatabaseTest, ValuesOfEveryTypeSurviveARestart) {
  open();
  {
    auto defaults = suite("configuration");
    EXPECT_TRUE(defaults.setValue("string", std::string("https://a.example/x?y=1")));
    EXPECT_TRUE(defaults.setValue("literal", "NO"));
    EXPECT_TRUE(defaults.setValue("int64", std::int64_t{-9007199254740993}));
    EXPECT_TRUE(defaults.setValue("int", 41943040));
    EXPECT_TRUE(defaults.setValue("double", 0.85));
    EXPECT_TRUE(defaults.setValue("bool", true));
    EXPECT_TRUE(defaults.setObject("object", json{{"a", 1}, {"b", json::array({"x", 2})}}));
    EXPECT_TRUE(defaults.setValue("removed", "soon gone"));
    EXPECT_TRUE(defaults.removeObjectForKey("removed"));
    // A null C string removes the value, as nil does.
    EXPECT_TRUE(defaults.setValue("nil", "soon gone"));
    EXPECT_TRUE(defaults.setValue("nil", static_cast<const char*>(nullptr)));
    EXPECT_TRUE(defaults.synchronize());
  }
  restart();

  auto defaults = suite("configuration");
  EXPECT_EQ(defaults.stringForKey("string"), "https://a.example/x?y=1");
  EXPECT_EQ(defaults.integerForKey("int64"), -9007199254740993);
  EXPECT_EQ(defaults.integerForKey("int"), 41943040);
  EXPECT_EQ(defaults.doubleForKey("double"), 0.85);
  EXPECT_EQ(defaults.boolForKey("bool"), true);
  EXPECT_EQ(defaults.objectForKey("object"), (json{{"a", 1}, {"b", json::array({"x", 2})}}));
  EXPECT_EQ(defaults.objectForKey("removed"), std::nullopt);
  EXPECT_EQ(defaults.objectForKey("nil"), std::nullopt);
  EXPECT_EQ(defaults.stringForKey("never set"), std::nullopt);
  // The type survives, not only the text: a string literal stays a string.
  EXPECT_EQ(defaults.objectForKey("literal"), json("NO"));
  EXPECT_TRUE(defaults.objectForKey("bool")->is_boolean());
  EXPECT_TRUE(defaults.objectForKey("double")->is_number_float());
}

TEST_F(KeyValueDatabaseTest, SuitesKeepTheirKeysApart) {
  open();
  auto configuration = suite("configuration");
  auto loadedFiles = suite("com.zivora.loadedFiles");
  configuration.setValue("shared", "configuration's");
  loadedFiles.setValue("shared", std::int64_t{409600});
  loadedFiles.setValue("only.mp4", 1);

  EXPECT_EQ(configuration.stringForKey("shared"), "configuration's");
  EXPECT_EQ(loadedFiles.integerForKey("shared"), 409600);
  EXPECT_EQ(configuration.objectForKey("only.mp4"), std::nullopt);
  loadedFiles.removeObjectForKey("shared");
  EXPECT_EQ(configuration.stringForKey("shared"), "configuration's");
}

// Reads convert between types the way the platform's user defaults do.
TEST_F(KeyValueDatabaseTest, ReadsConvertBetweenTypes) {
  open();
  auto d = suite("s");
  d.setValue("int", 5);
  d.setValue("double", 1.5);
  d.setValue("whole double", 2.0);
  d.setValue("true", true);
  d.setValue("digits", "  -42abc");
  d.setValue("words", "abc");
  d.setValue("yes", "YES");
  d.setValue("zeros", "+0007");
  d.setValue("no", "no");
  d.setValue("decimal", " 2.5 kg");
  d.setObject("array", json::array({1, 2}));

  EXPECT_EQ(d.stringForKey("int"), "5");
  EXPECT_EQ(d.stringForKey("double"), "1.5");
  EXPECT_EQ(d.stringForKey("whole double"), "2");
  EXPECT_EQ(d.stringForKey("true"), "1");
  EXPECT_EQ(d.stringForKey("array"), std::nullopt);

  EXPECT_EQ(d.integerForKey("digits"), -42);
  EXPECT_EQ(d.integerForKey("words"), 0);
  EXPECT_EQ(d.integerForKey("double"), 1);
  EXPECT_EQ(d.integerForKey("true"), 1);
  EXPECT_EQ(d.integerForKey("array"), std::nullopt);

  EXPECT_EQ(d.doubleForKey("decimal"), 2.5);
  EXPECT_EQ(d.doubleForKey("int"), 5.0);
  EXPECT_EQ(d.doubleForKey("words"), 0.0);

  EXPECT_EQ(d.boolForKey("yes"), true);
  EXPECT_EQ(d.boolForKey("zeros"), true);
  EXPECT_EQ(d.boolForKey("no"), false);
  EXPECT_EQ(d.boolForKey("double"), true);
  EXPECT_EQ(d.boolForKey("array"), std::nullopt);
}

TEST_F(KeyValueDatabaseTest, AFailedWriteAnswersFalseLogsAndKeepsTheOldValue) {
  open();
  auto defaults = suite("s");
  ASSERT_TRUE(defaults.setValue("randomUID", "first"));

  // Another connection makes every later insert fail.
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other,
                         "CREATE TRIGGER refuse BEFORE INSERT ON defaults "
                         "BEGIN SELECT RAISE(ABORT, 'refused'); END",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(other);

  EXPECT_FALSE(defaults.setValue("randomUID", "second"));
  EXPECT_TRUE(loggedWarningNaming(file()));
  EXPECT_EQ(defaults.stringForKey("randomUID"), "first");
  // Values without a faithful JSON text are refused, not stored as null.
  EXPECT_FALSE(defaults.setValue("nan", std::nan("")));
}

// Reads are answered from memory once a key is known; the copy must follow
// every write and removal, whichever suite object made it, and give back
// the same value a fresh process reads from the file.
TEST_F(KeyValueDatabaseTest, ReadsFromMemoryFollowEveryChangeAndMatchTheFile) {
  open();
  auto writer = suite("s");
  auto reader = suite("s");
  EXPECT_EQ(reader.stringForKey("k"), std::nullopt);  // an absence is known too
  ASSERT_TRUE(writer.setValue("k", "one"));
  EXPECT_EQ(reader.stringForKey("k"), "one");
  ASSERT_TRUE(writer.setValue("k", std::int64_t{5}));
  EXPECT_EQ(reader.stringForKey("k"), "5");
  const auto inMemory = reader.objectForKey("k");
  ASSERT_TRUE(writer.removeObjectForKey("k"));
  EXPECT_EQ(reader.objectForKey("k"), std::nullopt);

  ASSERT_TRUE(writer.setValue("n", std::int64_t{5}));
  const auto written = reader.objectForKey("n");
  // Far more keys than the copy keeps: it starts over, still right.
  for (int i = 0; i < 5000; ++i)
    ASSERT_EQ(reader.objectForKey(fmt::format("absent{}", i)), std::nullopt);
  EXPECT_EQ(reader.integerForKey("n"), 5);
  restart();
  const auto fromFile = suite("s").objectForKey("n");
  ASSERT_TRUE(written && fromFile && inMemory);
  // Same type as well as value: a positive integer reads back unsigned.
  EXPECT_EQ(written->type(), fromFile->type());
  EXPECT_EQ(inMemory->type(), fromFile->type());
}

struct DamagedFile {
  const char* name;
  std::string bytes;
};
void PrintTo(const DamagedFile& file, std::ostream* out) { *out << file.name; }

std::string randomBytes(std::size_t size) {
  std::mt19937 generator(7);
  std::string bytes(size, '\0');
  for (auto& byte : bytes) byte = static_cast<char>(generator() & 0xff);
  return bytes;
}

class DamagedDatabaseTest : public KeyValueDatabaseTest,
                            public ::testing::WithParamInterface<DamagedFile> {};

TEST_P(DamagedDatabaseTest, IsMovedAsideWithItsJournalsAndAFreshStoreWorks) {
  test::writeFile(file(), GetParam().bytes);
  test::writeFile(file().string() + "-wal", "stale journal");

  open();
  EXPECT_TRUE(loggedWarningNaming(file()));

  auto aside = setAside();
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(test::readFile(aside[0]), GetParam().bytes);
  EXPECT_TRUE(fs::exists(aside[0].string() + "-wal"));

  auto defaults = suite("configuration");
  EXPECT_TRUE(defaults.setValue("appId", "fresh"));
  restart();
  EXPECT_EQ(suite("configuration").stringForKey("appId"), "fresh");
}

INSTANTIATE_TEST_SUITE_P(NotADatabase, DamagedDatabaseTest,
                         ::testing::Values(DamagedFile{"RandomBytes", randomBytes(8192)},
                                           DamagedFile{"TextFile",
                                                       "appId=123\nserverURL=https://x.example\n"},
                                           DamagedFile{"ShortHeader", "SQLite format 3"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(KeyValueDatabaseTest, ATruncatedDatabaseIsMovedAsideAndRecreated) {
  open();
  for (int i = 0; i < 400; ++i) {
    suite("com.zivora.loadedFiles")
        .setValue(fmt::format("{:032x}.mp4", i * 7919), std::int64_t{i} * 1000);
  }
  database_.reset();  // the last connection checkpoints the WAL into the file
  auto size = fs::file_size(file());
  ASSERT_GT(size, 3u * 4096u);
  fs::resize_file(file(), 2 * 4096);

  open();
  EXPECT_EQ(setAside().size(), 1u);
  EXPECT_TRUE(loggedWarningNaming(file()));
  EXPECT_EQ(suite("com.zivora.loadedFiles").integerForKey(fmt::format("{:032x}.mp4", 7919)),
            std::nullopt);
  EXPECT_TRUE(suite("configuration").setValue("appId", "fresh"));
}

// A file where the directory goes, or a directory where the database goes:
// no store, a warning, and nothing moved.
TEST_F(KeyValueDatabaseTest, AnUnopenablePathLeavesTheStoreAbsentAndTouchesNothing) {
  test::writeFile(dir_.path() / "Preferences", "a regular file");
  EXPECT_EQ(KeyValueDatabase::open(file()), nullptr);
  EXPECT_TRUE(loggedWarningNaming(file()));
  EXPECT_EQ(UserDefaults(nullptr, "s").stringForKey("k"), std::nullopt);
  EXPECT_FALSE(UserDefaults(nullptr, "s").setValue("k", "v"));

  fs::remove(dir_.path() / "Preferences");
  fs::create_directories(file() / "inside");
  scope_.log().clear();
  EXPECT_EQ(KeyValueDatabase::open(file()), nullptr);
  EXPECT_TRUE(loggedWarningNaming(file()));
  EXPECT_TRUE(fs::is_directory(file() / "inside"));
  EXPECT_TRUE(setAside().empty());
}

}  // namespace
}  // namespace zivora::platform
