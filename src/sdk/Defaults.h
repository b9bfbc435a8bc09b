#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "zivora/HostOptions.h"

namespace zivora {

class ZVPAnalitics;
namespace dispatch {
class Queue;
class Runtime;
}  // namespace dispatch
namespace media {
class MediaFactory;
}
namespace platform {
class FileSystem;
class HttpClient;
class KeyValueStore;
class RouteSource;
class SecretStore;
class StreamingHttpClient;
class UrlOpener;
class WindowSurface;
}  // namespace platform

// The build's own collaborators, for whatever the host or a test leaves out
// of RuntimeOptions, and the facts of the machine. Declared here, below the
// subsystems that use them; defined by the top-level wiring, the one place
// that names the Linux implementations.
namespace defaults {

std::shared_ptr<dispatch::Runtime> runtime(const HostOptions& host);
std::shared_ptr<platform::HttpClient> http(const HostOptions& host);
std::shared_ptr<platform::StreamingHttpClient> downloads(
    const HostOptions& host, std::shared_ptr<dispatch::Runtime> runtime);
std::shared_ptr<platform::FileSystem> files();
std::shared_ptr<ZVPAnalitics> analytics();
// Players report on `mainQueue`.
std::shared_ptr<media::MediaFactory> media(dispatch::Queue& mainQueue);
// Opened addresses' helper processes are reaped on `reaper`.
std::shared_ptr<platform::UrlOpener> opener(dispatch::Queue& reaper);
// The Secret Service, or a file store under `dataRoot` when there is none.
std::shared_ptr<platform::SecretStore> secretStore(const std::filesystem::path& dataRoot);
// The store in `file`, created if needed; null (logged) when it cannot be
// opened. Never throws.
std::shared_ptr<platform::KeyValueStore> keyValueStore(const std::filesystem::path& file) noexcept;
// The system's routing table, watched for changes.
std::unique_ptr<platform::RouteSource> routeSource();
// The window ad screens are shown in: the host's `hostWindow` or one of the
// SDK's own. Null, with the reason in `why`, when the window system cannot
// start or no window can be made. Main queue only.
std::unique_ptr<platform::WindowSurface> windowSurface(const HostOptions& host, std::string& why);
// Whether the window system was started by the host itself. Only reads the
// window system's own counters, so any thread may ask.
bool windowSystemStartedByHost();

// Facts of the machine.
std::string machine();
std::string osVersion();
std::string hostName();
std::int64_t ramMiB();
std::string language();

}  // namespace defaults

}  // namespace zivora
