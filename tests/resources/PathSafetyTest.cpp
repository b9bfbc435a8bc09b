// Names and addresses from the server never reach outside the cache
// directory: not the "removeFiles" entries of the handshake, not a link
// planted under a cache name, not odd or huge resource addresses. Real
// files in a temporary directory; the SDK runs on virtual time against a
// scripted ad server and download server.
#include <unistd.h>

#include <set>

#include "resources/ResourceFixture.h"
#include "support/FakeHttpClient.h"
#include "support/MemoryPresenter.h"
#include "top/ZivoraInstance.h"

namespace zivora::test {
namespace {

namespace fs = std::filesystem;

constexpr char kPrecious[] = "the host's own bytes\n";
constexpr char kRemovable[] = "https://cdn.example/v/old-ad.mp4";

std::set<std::string> namesIn(const fs::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

// The layout under one temporary directory:
//   data/               the SDK's data root, its cache in data/Caches/Zivora
//   data/keep.txt       the host's, beside the SDK's own files
//   data/Caches/sibling.txt
//   outside/victim.txt  somewhere else entirely
class PathSafetyTest : public ::testing::Test {
 protected:
  PathSafetyTest() {
    for (const auto& file : planted()) writeFile(file, kPrecious);
    fs::create_directories(cache());
  }
  ~PathSafetyTest() override { ZivoraInstance::reset(); }

  fs::path dataRoot() const { return root_.path() / "data"; }
  fs::path cache() const { return dataRoot() / "Caches" / "Zivora"; }
  fs::path outside() const { return root_.path() / "outside"; }
  fs::path victim() const { return outside() / "victim.txt"; }
  std::vector<fs::path> planted() const {
    return {victim(), dataRoot() / "keep.txt", dataRoot() / "Caches" / "sibling.txt"};
  }

  // Starts the SDK and lets the handshake, answered with `reply`, run.
  void start(const std::string& reply = "{}") {
    http_->enqueue(200, reply);
    ZivoraInstance::start("app", HostOptions{.dataRoot = dataRoot().string()},
                          RuntimeOptions{.runtime = runtime_, .http = http_, .downloads = client_});
    useMemoryPresenter(*runtime_);
    runtime_->runUntilIdle();
  }

  static std::shared_ptr<ZVResourceManager> manager() {
    return ZVResourceManager::defaultManager();
  }

  // Downloads `url` from a server holding `content` until it completes.
  void download(const std::string& url, const std::string& content) {
    manager()->loadURL(url, listener_);
    runtime_->runUntilIdle();
    client_->serve(client_->last(), content);
    runtime_->runUntilIdle();
  }

  void expectPlantedFilesUntouched() const {
    for (const auto& file : planted()) EXPECT_EQ(readFile(file), kPrecious) << file;
    EXPECT_EQ(namesIn(outside()), std::set<std::string>{"victim.txt"});
    EXPECT_EQ(namesIn(dataRoot() / "Caches"), (std::set<std::string>{"Zivora", "sibling.txt"}));
  }

  TempDir root_;
  std::shared_ptr<VirtualRuntime> runtime_ = std::make_shared<VirtualRuntime>();
  std::shared_ptr<FakeHttpClient> http_ = std::make_shared<FakeHttpClient>();
  std::shared_ptr<FakeStreamingClient> client_ = std::make_shared<FakeStreamingClient>(*runtime_);
  std::shared_ptr<RecordingDownloadDelegate> listener_ =
      std::make_shared<RecordingDownloadDelegate>();
};

// --- "removeFiles" ------------------------------------------------------------------

// One entry of the list, as JSON; "{root}" stands for the temporary
// directory's absolute path.
class RemoveFilesEntryTest : public PathSafetyTest,
                             public ::testing::WithParamInterface<std::string> {
 protected:
  std::string entry() const {
    std::string text = GetParam();
    for (auto at = text.find("{root}"); at != std::string::npos; at = text.find("{root}"))
      text.replace(at, 6, root_.path().string());
    return text;
  }
};

TEST_P(RemoveFilesEntryTest, RemovesOnlyARegularFileDirectlyInTheCache) {
  // What may go: the cached file of a listed address. A link to the victim
  // and a directory holding a file sit in the cache beside it.
  const fs::path removable = cache() / ZVResourceManager::convertURLToFileName(kRemovable);
  writeFile(removable, "old ad");
  fs::create_symlink(victim(), cache() / "link-out");
  fs::create_symlink(victim(), cache() / ZVResourceManager::convertURLToFileName(
                                             "https://cdn.example/v/linked.mp4"));
  writeFile(cache() / "dir" / "inner.txt", kPrecious);

  start(R"({"removeFiles": [)" + entry() + R"(, ")" + kRemovable + R"("]})");

  EXPECT_FALSE(fs::exists(removable)) << "the list was not processed";
  expectPlantedFilesUntouched();
  EXPECT_TRUE(fs::is_symlink(cache() / "link-out"));
  EXPECT_EQ(readFile(cache() / "dir" / "inner.txt"), kPrecious);
}

INSTANTIATE_TEST_SUITE_P(
    HostileEntries, RemoveFilesEntryTest,
    ::testing::Values(
        // Climbing out of the cache, by name and by address.
        R"("../sibling.txt")", R"("../../keep.txt")", R"("../../../outside/victim.txt")",
        R"("https://cdn.example/../../../outside/victim.txt")",
        R"("https://cdn.example/v/..%2f..%2f..%2foutside%2fvictim.txt")",
        // Absolute paths and addresses of the file outside.
        R"("{root}/outside/victim.txt")", R"("file://{root}/outside/victim.txt")",
        R"("{root}/data/keep.txt")",
        // Links and directories in the cache itself.
        R"("link-out")", R"("https://cdn.example/v/linked.mp4")", R"("dir")", R"("dir/inner.txt")",
        // Names that are no file at all.
        R"(".")", R"("..")", R"("")", R"("link-out\u0000")", "\"" + std::string(10000, 'a') + "\"",
        "\"https://cdn.example/" + std::string(10000, 'a') + ".mp4\"",
        // Values that are not text.
        "null", "42", R"({"path": "../../keep.txt"})", R"(["../../keep.txt"])"));

// --- Links planted under a cache name ---------------------------------------------

constexpr char kVideo[] = "https://cdn.example/v/video.mp4";

class PlantedLinkTest : public PathSafetyTest, public ::testing::WithParamInterface<bool> {
 protected:
  // The link's target: the victim, or a file that does not exist yet.
  fs::path target() const { return GetParam() ? victim() : outside() / "created.txt"; }
  fs::path cacheFile() const { return cache() / ZVResourceManager::convertURLToFileName(kVideo); }
};

TEST_P(PlantedLinkTest, ADownloadReplacesTheLinkAndNeverWritesThroughIt) {
  fs::create_symlink(target(), cacheFile());
  start();
  // Nothing outside is served either.
  EXPECT_EQ(manager()->fileHandler(cacheFile().filename().string()), -1);

  const std::string content(2500, 'v');
  download(kVideo, content);
  // The link is not a partial file to resume from.
  EXPECT_EQ(client_->last()->header("Range"), std::nullopt);

  EXPECT_FALSE(fs::is_symlink(cacheFile()));
  EXPECT_EQ(readFile(cacheFile()), content);
  EXPECT_TRUE(manager()->isLoaded(cacheFile().filename().string()));
  expectPlantedFilesUntouched();
}

TEST_P(PlantedLinkTest, AResumeAnsweredWithARangeStillWritesOnlyTheCacheFile) {
  // A partial file was there; a link took its place before the reply came.
  writeFile(cacheFile(), "partial");
  start();
  manager()->loadURL(kVideo, listener_);
  runtime_->runUntilIdle();
  auto transfer = client_->last();
  ASSERT_EQ(transfer->header("Range"), "bytes=7-");
  fs::remove(cacheFile());
  fs::create_symlink(target(), cacheFile());
  client_->respond(transfer, 206, {{"Content-Range", "bytes 7-99/100"}});
  runtime_->runUntilIdle();
  // The reply no longer matches a partial file: the whole file is asked for.
  client_->serve(client_->last(), std::string(100, 'w'));
  runtime_->runUntilIdle();

  EXPECT_FALSE(fs::is_symlink(cacheFile()));
  EXPECT_EQ(readFile(cacheFile()), std::string(100, 'w'));
  expectPlantedFilesUntouched();
}

TEST_P(PlantedLinkTest, ACompleteFileSwappedForALinkIsNoLongerComplete) {
  start();
  const std::string content(21, 'v');
  download(kVideo, content);
  ASSERT_TRUE(manager()->isLoaded(cacheFile().filename().string()));
  // A target of the very same size as the recorded file.
  writeFile(outside() / "created.txt", content);
  fs::remove(cacheFile());
  fs::create_symlink(target(), cacheFile());

  EXPECT_FALSE(manager()->isLoaded(cacheFile().filename().string()));
  EXPECT_NE(manager()->assetForFile(cacheFile().filename().string()).url.rfind("file://", 0), 0u);
  fs::remove(outside() / "created.txt");
  expectPlantedFilesUntouched();
}

INSTANTIATE_TEST_SUITE_P(Targets, PlantedLinkTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Existing" : "Dangling"; });

// --- Odd and huge addresses --------------------------------------------------------

class OddAddressTest : public PathSafetyTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(OddAddressTest, CachesUnderAPlainNameDirectlyInTheCache) {
  start();
  const std::string url = GetParam();
  const std::string name = ZVResourceManager::convertURLToFileName(url);
  ASSERT_GE(name.size(), 33u);
  const std::string extension = name.substr(33);
  EXPECT_EQ(name[32], '.');
  EXPECT_LE(extension.size(), 16u);
  for (unsigned char c : extension) EXPECT_TRUE(std::isalnum(c)) << name;

  download(url, "payload");
  EXPECT_EQ(readFile(cache() / name), "payload");
  EXPECT_EQ(namesIn(cache()), std::set<std::string>{name});
  expectPlantedFilesUntouched();
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, OddAddressTest,
    ::testing::Values(
        "https://cdn.example/v/a.mp4?x=../../a", "https://cdn.example/v/a.%2e%2e",
        "https://cdn.example/v/%2e%2e", "https://cdn.example/v/..", "https://cdn.example/v/a..",
        "https://cdn.example/v/a.", "https://cdn.example/v/a.m\xc3\xa9p4",
        std::string("https://cdn.example/v/a.m\0p4", 28), "https://cdn.example/\xd0\xb2.\xd0\xbc",
        "https://cdn.example/v/a." + std::string(40, 'x'),
        "https://cdn.example/v/a.mp4/../../../../outside/victim.txt", "../../../outside/victim.txt",
        "/tmp/../etc/passwd", "", "https://cdn.example/" + std::string(10000, 'a') + ".mp4",
        "https://cdn.example/v/a." + std::string(10000, '.')));

}  // namespace
}  // namespace zivora::test
