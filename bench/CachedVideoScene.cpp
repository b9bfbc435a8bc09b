#include "CachedVideoScene.h"

#include <filesystem>

#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/GstMediaFactory.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "ui/Display.h"

namespace zivora::bench {

CachedVideoScene::CachedVideoScene(const std::string& file)
    : runtime_(std::make_shared<dispatch::ThreadRuntime>()),
      url_("https://cdn.example/bench-720p.mp4") {
  auto media = std::make_shared<platform::GstMediaFactory>(
      runtime_->mainQueue(), platform::GstPlaybackOptions{.audio = platform::AudioOutput::Discard});
  auto downloads =
      std::make_shared<platform::CurlStreamingClient>(platform::StreamingClientOptions{}, runtime_);
  scope_ = std::make_unique<test::ScopedContext>(
      HostOptions{.dataRoot = root_.path().string()},
      RuntimeOptions{.runtime = runtime_, .downloads = downloads, .media = media});
  ui::Display::of(Context::current())
      ->setPresenter(std::make_unique<ui::Presenter>(ui::Screen{{1280, 720}, 1, {}},
                                                     runtime_->mainQueue(), runtime_->clock()));
  name_ = ZVResourceManager::convertURLToFileName(url_);
  std::filesystem::copy_file(file, ZVResourceManager::defaultManager()->pathToFile(name_));
  ZVFilesSavedValidator::defaultValidator()->setFullLoaded(
      name_, static_cast<std::int64_t>(std::filesystem::file_size(file)));
}

ui::Presenter& CachedVideoScene::presenter() {
  return ui::Display::of(Context::current())->presenter();
}

}  // namespace zivora::bench
