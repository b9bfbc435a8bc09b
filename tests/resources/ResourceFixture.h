#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "resources/ZVResourceManager.h"
#include "support/FakeFileSystem.h"
#include "support/FakeStreamingClient.h"
#include "support/Files.h"
#include "support/RecordingDownloadDelegate.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"

namespace zivora::test {

// A context on virtual time with a data root of its own, a scripted
// download server and a file seam with faults on demand. Most tests fetch
// one video, kUrl, cached as file().
class ResourceFixture : public ::testing::Test {
 protected:
  using TransferPtr = std::shared_ptr<FakeStreamingClient::Transfer>;
  static constexpr const char* kUrl = "https://cdn.example/ads/video.mp4";

  ResourceFixture()
      : runtime_(std::make_shared<VirtualRuntime>()),
        client_(std::make_shared<FakeStreamingClient>(*runtime_)),
        files_(std::make_shared<FakeFileSystem>()),
        scope_({.dataRoot = root_.path().string()},
               {.runtime = runtime_, .downloads = client_, .files = files_}) {}

  std::filesystem::path cache() const { return root_.path() / "Caches" / "Zivora"; }
  static std::string name() { return ZVResourceManager::convertURLToFileName(kUrl); }
  std::filesystem::path file() const { return cache() / name(); }
  static std::shared_ptr<ZVResourceManager> manager() {
    return ZVResourceManager::defaultManager();
  }
  std::string lastEvent() const {
    return listener_->events.empty() ? "" : listener_->events.back();
  }

  // Asks for kUrl and runs until the request is out.
  TransferPtr request() {
    manager()->loadURL(kUrl, listener_);
    runtime_->runUntilIdle();
    return client_->last();
  }
  // Plays a file server holding `content` for the last request.
  void serve(const std::string& content, std::optional<std::size_t> stopAfter = std::nullopt) {
    client_->serve(client_->last(), content, 1000, stopAfter);
    runtime_->runUntilIdle();
  }

  static std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
      text[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    return text;
  }

  TempDir root_;
  std::shared_ptr<VirtualRuntime> runtime_;
  std::shared_ptr<FakeStreamingClient> client_;
  std::shared_ptr<FakeFileSystem> files_;
  ScopedContext scope_;
  std::shared_ptr<RecordingDownloadDelegate> listener_ =
      std::make_shared<RecordingDownloadDelegate>();
};

}  // namespace zivora::test
