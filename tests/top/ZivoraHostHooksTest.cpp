// What a host can plug into the SDK through HostOptions and the facade: its
// own log and opener, pictures of the ad screens, the queued-events check
// and the orderly end, on virtual time.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "events/ZVEventSender.h"
#include "platform/UrlOpener.h"
#include "support/FakeHttpClient.h"
#include "support/MemorySecretStore.h"
#include "support/RecordingAdSide.h"
#include "support/RecordingAnalytics.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "top/ZivoraInstance.h"
#include "ui/Display.h"
#include "util/ZVLog.h"
#include "zivora/Zivora.h"
#include "zivora/zivora_c.h"

namespace zivora {
namespace {

// What the host's functions heard; they may be called from any thread.
struct HostEars {
  std::mutex mutex;
  std::vector<std::pair<ZivoraLogLevel, std::string>> lines;
  std::vector<std::string> opened;
  bool openAnswer = true;
};

class ZivoraHostHooksTest : public ::testing::Test {
 protected:
  ~ZivoraHostHooksTest() override { ZivoraInstance::reset(); }

  // Starts the SDK with the host's functions and no injected log or opener.
  void start() {
    HostOptions host{.dataRoot = root_.path().string()};
    host.log = [ears = ears_](ZivoraLogLevel level, const std::string& line) {
      if (line.find("host fails") != std::string::npos) throw std::runtime_error("host fails");
      std::lock_guard lock(ears->mutex);
      ears->lines.emplace_back(level, line);
    };
    host.openUrl = [ears = ears_](const std::string& url) {
      std::lock_guard lock(ears->mutex);
      ears->opened.push_back(url);
      return ears->openAnswer;
    };
    ZivoraInstance::start(
        "app-1", host,
        RuntimeOptions{.runtime = runtime_,
                       .http = std::make_shared<test::FakeHttpClient>(),
                       .analytics = std::make_shared<test::RecordingAnalytics>(),
                       .adSide = std::make_shared<test::RecordingAdSide>(),
                       .secretStore = std::make_shared<test::MemorySecretStore>()});
  }

  bool heard(ZivoraLogLevel level, const std::string& line) {
    std::lock_guard lock(ears_->mutex);
    for (const auto& [heardLevel, text] : ears_->lines)
      if (heardLevel == level && text == line) return true;
    return false;
  }

  test::TempDir root_;
  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  std::shared_ptr<HostEars> ears_ = std::make_shared<HostEars>();
};

// The host's log hears every line with its level and may throw; its opener
// gets only web addresses, and its answer counts.
TEST_F(ZivoraHostHooksTest, TheHostsLogAndOpenerHearWhatTheSdkSays) {
  start();
  Zivora::initializeWithAppId("again");
  EXPECT_TRUE(heard(ZivoraLogLevel::System, "[Zivora] Warning: Zivora already initialzed!"));
  ZVLog::LogWarning("[Test] a warning");
  EXPECT_TRUE(heard(ZivoraLogLevel::Warning, "[Test] a warning"));
  // Debug lines obey the switch before they reach the host.
  Zivora::logEnable(false);
  ZVLog::LogDebug("[Test] quiet");
  EXPECT_FALSE(heard(ZivoraLogLevel::Debug, "[Test] quiet"));
  Zivora::logEnable(true);
  ZVLog::LogDebug("[Test] loud");
  EXPECT_TRUE(heard(ZivoraLogLevel::Debug, "[Test] loud"));
  // A host function that throws loses its line, and the SDK goes on.
  ZVLog::LogWarning("[Test] the host fails here");
  ZVLog::LogWarning("[Test] after");
  EXPECT_TRUE(heard(ZivoraLogLevel::Warning, "[Test] after"));

  auto opener = Context::current()->opener();
  EXPECT_TRUE(opener->canOpenURL("https://store.example/app?id=1"));
  EXPECT_TRUE(opener->openURL("https://store.example/app?id=1"));
  ears_->openAnswer = false;
  EXPECT_FALSE(opener->openURL("http://store.example/other"));
  // Nothing but an absolute web address reaches an overlay browser.
  for (const char* address : {"file:///etc/passwd", "javascript:alert(1)", "https:///no-host",
                              "https://store.example/a b", ""}) {
    EXPECT_FALSE(opener->canOpenURL(address)) << address;
    EXPECT_FALSE(opener->openURL(address)) << address;
  }
  EXPECT_EQ(ears_->opened, (std::vector<std::string>{"https://store.example/app?id=1",
                                                     "http://store.example/other"}));
}

TEST_F(ZivoraHostHooksTest, CaptureScreenCopiesWhatTheScreensShowAndNothingWithoutOne) {
  EXPECT_EQ(Zivora::captureScreen(), std::nullopt);
  zivora_screen_image image{1, 1, 4, reinterpret_cast<unsigned char*>(&image)};
  EXPECT_EQ(zivora_capture_screen(&image), 0);
  EXPECT_EQ(image.pixels, nullptr);

  test::ScopedEnv driver("SDL_VIDEODRIVER", "dummy");
  start();
  auto display = ui::Display::of(Context::current());
  runtime_->runOnMain([&] {
    EXPECT_EQ(Zivora::captureScreen(), std::nullopt);
    auto& presenter = display->presenter();
    auto window = std::make_shared<ui::Window>(ui::Rect{{0, 0}, presenter.screen().size});
    window->setBackgroundColor(ui::Color{1, 0, 0, 1});
    presenter.present(window);

    auto picture = Zivora::captureScreen();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width, presenter.canvas().pixelWidth());
    EXPECT_EQ(picture->height, presenter.canvas().pixelHeight());
    ASSERT_GE(picture->stride, picture->width * 4);
    ASSERT_EQ(picture->pixels.size(), std::size_t(picture->stride) * picture->height);
    std::uint32_t centre = 0;
    std::memcpy(
        &centre,
        picture->pixels.data() + picture->height / 2 * picture->stride + picture->width / 2 * 4,
        sizeof centre);
    EXPECT_EQ(centre, 0xFFFF0000u);

    // The C copy is the same picture, and freeing it empties the struct.
    ASSERT_EQ(zivora_capture_screen(&image), 1);
    EXPECT_EQ(image.width, picture->width);
    EXPECT_EQ(image.stride, picture->stride);
    EXPECT_EQ(std::memcmp(image.pixels, picture->pixels.data(), picture->pixels.size()), 0);
    zivora_screen_image_free(&image);
    EXPECT_EQ(image.pixels, nullptr);
    zivora_screen_image_free(nullptr);
    display->closeScreens();
  });
}

TEST_F(ZivoraHostHooksTest, QueuedEventsShowUntilSentAndShutdownEndsTheSdkForANewStart) {
  EXPECT_FALSE(Zivora::hasQueuedEvents());
  start();
  EXPECT_FALSE(Zivora::hasQueuedEvents());
  auto& saver = ZVEventSender::shared()->eventController().saver();
  ASSERT_TRUE(saver.save(R"({"watchedAd":{}})"));
  EXPECT_TRUE(Zivora::hasQueuedEvents());
  EXPECT_EQ(zivora_has_queued_events(), 1);
  saver.removeFirstLine();
  EXPECT_FALSE(Zivora::hasQueuedEvents());

  Zivora::shutdown();
  EXPECT_EQ(ZivoraInstance::current(), nullptr);
  EXPECT_FALSE(Zivora::hasQueuedEvents());
  zivora_shutdown();  // a second end is harmless
  start();
  EXPECT_NE(ZivoraInstance::current(), nullptr);
}

}  // namespace
}  // namespace zivora
