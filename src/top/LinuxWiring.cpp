// The one place that names the Linux implementations: the defaults the SDK
// base declares, and the reporter the helpers use, are defined here.

#include "analytics/ZVPAnalitics.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/DeviceFacts.h"
#include "platform/linux/GstMediaFactory.h"
#include "platform/linux/KeyValueDatabase.h"
#include "platform/linux/NetlinkRouteSource.h"
#include "platform/linux/PosixFileSystem.h"
#include "platform/linux/SdlWindow.h"
#include "platform/linux/SecretStoreChooser.h"
#include "platform/linux/ThreadRuntime.h"
#include "platform/linux/XdgOpener.h"
#include "sdk/Defaults.h"
#include "util/Upcalls.h"

namespace zivora {

namespace defaults {

std::shared_ptr<dispatch::Runtime> runtime(const HostOptions& host) {
  return std::make_shared<dispatch::ThreadRuntime>(host.mainQueueMode);
}

std::shared_ptr<platform::HttpClient> http(const HostOptions& host) {
  return std::make_shared<platform::CurlHttpClient>(
      platform::HttpClientOptions{.caFile = host.caFile});
}

std::shared_ptr<platform::StreamingHttpClient> downloads(
    const HostOptions& host, std::shared_ptr<dispatch::Runtime> runtime) {
  return std::make_shared<platform::CurlStreamingClient>(
      platform::StreamingClientOptions{.caFile = host.caFile}, std::move(runtime));
}

std::shared_ptr<platform::FileSystem> files() {
  return std::make_shared<platform::PosixFileSystem>();
}

std::shared_ptr<ZVPAnalitics> analytics() { return std::make_shared<ZVPAnalitics>(); }

std::shared_ptr<media::MediaFactory> media(dispatch::Queue& mainQueue) {
  return std::make_shared<platform::GstMediaFactory>(mainQueue);
}

std::shared_ptr<platform::UrlOpener> opener(dispatch::Queue& reaper) {
  return std::make_shared<platform::XdgOpener>(reaper);
}

std::shared_ptr<platform::SecretStore> secretStore(const std::filesystem::path& dataRoot) {
  return platform::SecretStoreChooser::open(dataRoot);
}

std::shared_ptr<platform::KeyValueStore> keyValueStore(const std::filesystem::path& file) noexcept {
  return platform::KeyValueDatabase::open(file);
}

std::unique_ptr<platform::RouteSource> routeSource() {
  return platform::NetlinkRouteSource::open();
}

std::unique_ptr<platform::WindowSurface> windowSurface(const HostOptions& host, std::string& why) {
  return platform::SdlWindow::open(host, why);
}

bool windowSystemStartedByHost() { return platform::SdlWindow::videoStartedElsewhere(); }

std::string machine() { return platform::DeviceFacts::machine(); }
std::string osVersion() { return platform::DeviceFacts::osVersion(); }
std::string hostName() { return platform::DeviceFacts::hostName(); }
std::int64_t ramMiB() { return platform::DeviceFacts::ramMiB(); }
std::string language() { return platform::DeviceFacts::language(); }

}  // namespace defaults

Reporter& upcalls::reporter() noexcept { return ZVPAnalitics::shared(); }

}  // namespace zivora
