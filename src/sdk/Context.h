#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <vector>

#include "zivora/HostOptions.h"

namespace zivora {

class AdSide;
class LogSink;
class ZVPAnalitics;
namespace dispatch {
class Runtime;
}
namespace media {
class MediaFactory;
}
namespace platform {
class FileSystem;
class HttpClient;
class KeyValueStore;
class StreamingHttpClient;
class SecretStore;
class UrlOpener;
class UserDefaults;
}  // namespace platform

// Where the SDK's state lives under the data root.
struct Paths {
  std::filesystem::path dataRoot;

  std::filesystem::path cacheDirectory() const;      // Caches/Zivora
  std::filesystem::path documentsDirectory() const;  // Documents
  std::filesystem::path preferencesFile() const;     // Preferences/defaults.sqlite

  // $XDG_DATA_HOME (or ~/.local/share) / applicationName / zivora
  static std::filesystem::path defaultDataRoot(const std::string& applicationName);
};

// Collaborators injected at initialisation; tests fill them with fakes.
// The log defaults to standard error and analytics to the built-in facade.
struct RuntimeOptions {
  std::shared_ptr<dispatch::Runtime> runtime = nullptr;
  std::shared_ptr<platform::HttpClient> http = nullptr;
  // Resource downloads; null gives libcurl with the host's CA file.
  std::shared_ptr<platform::StreamingHttpClient> downloads = nullptr;
  // Free space and writes of the resource cache; null gives the system's.
  std::shared_ptr<platform::FileSystem> files = nullptr;
  std::shared_ptr<LogSink> log = nullptr;
  std::shared_ptr<ZVPAnalitics> analytics = nullptr;
  // What the facade drives beyond the handshake (placements, downloads,
  // events, rewards); null gives the build's own.
  std::shared_ptr<AdSide> adSide = nullptr;
  // Makes the video items and players; null gives GStreamer, reporting on
  // the runtime's main queue.
  std::shared_ptr<media::MediaFactory> media = nullptr;
  // Where identities are kept; null chooses the Secret Service or the file
  // store under the data root.
  std::shared_ptr<platform::SecretStore> secretStore = nullptr;
  // Opens click targets; null gives xdg-open for http and https addresses.
  std::shared_ptr<platform::UrlOpener> opener = nullptr;
  // How long one second of the protocol's retry schedules lasts. Integration
  // tests on real time shorten it instead of waiting 5 s, 10 s ...
  std::chrono::nanoseconds retryTimeUnit = std::chrono::seconds(1);
};

// Owns the options, the collaborators and every shared instance of the SDK.
// Initialisation installs one; a test installs a fresh one and drops it, so
// no test sees another's state.
class Context {
 public:
  Context(HostOptions host, RuntimeOptions runtime);
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  // The installed context, or null before initialisation.
  static std::shared_ptr<Context> current();
  // The installed context for work that cannot go on without one (a task
  // that outlived a reset): throws std::logic_error when none is installed,
  // which the caller's guard turns into its failure path.
  static std::shared_ptr<Context> require();
  static void install(std::shared_ptr<Context> context);
  // Where a log line goes now: the installed context's sink. With none
  // installed, standard error, unless the context installed last had a sink
  // of its own: its host chose where the SDK's lines go, and a line from
  // work that outlived it must not reach the terminal behind the host's
  // back, so it is dropped (null).
  static std::shared_ptr<LogSink> currentLog();

  const HostOptions& host() const { return host_; }
  const Paths& paths() const { return paths_; }
  // Throw std::logic_error when the context was made without them.
  dispatch::Runtime& runtime() const;
  bool hasRuntime() const noexcept { return runtime_.runtime != nullptr; }
  platform::HttpClient& http() const;
  platform::StreamingHttpClient& downloads() const;
  platform::FileSystem& files() const { return *runtime_.files; }
  LogSink& log() const { return *runtime_.log; }
  const RuntimeOptions& runtimeOptions() const { return runtime_; }
  ZVPAnalitics& analytics() const { return *runtime_.analytics; }
  // The injected media factory, or the context's GStreamer one (made on
  // first use; needs the runtime).
  std::shared_ptr<media::MediaFactory> media();

  // The user-defaults suite `suite` over the preferences database, which is
  // opened on first use. Null when the database cannot be opened (the
  // failure is logged once).
  std::shared_ptr<platform::UserDefaults> userDefaults(const std::string& suite);

  // The injected opener, or the context's xdg-open one. Never null.
  std::shared_ptr<platform::UrlOpener> opener();

  // The secret store, chosen on first use. Never null.
  std::shared_ptr<platform::SecretStore> secretStore();

  // Ends the work of the context's collaborators for good: requests under
  // way are aborted, the runtime's queues drop their pending work, and work
  // running on other threads is waited for (see Runtime::shutdown). Called
  // from a task of the SDK, it returns while that task is still running.
  void shutdown();

  // Runs `action` when the context goes, before its instances are released:
  // an instance that others hold in a cycle (a display whose shown screens
  // refer back to it) breaks the cycle there.
  void onTeardown(std::function<void()> action);

  // The context's one instance of T, made by `make` on first use.
  template <class T, class Factory>
  std::shared_ptr<T> instance(Factory&& make) {
    std::lock_guard lock(instancesMutex_);
    auto& slot = instances_[std::type_index(typeid(T))];
    if (!slot) slot = std::shared_ptr<void>(make());
    return std::static_pointer_cast<T>(slot);
  }

 private:
  HostOptions host_;
  RuntimeOptions runtime_;
  Paths paths_;

  std::mutex preferencesMutex_;
  bool preferencesOpened_ = false;
  std::shared_ptr<platform::KeyValueStore> preferences_;

  std::mutex secretStoreMutex_;
  std::shared_ptr<platform::SecretStore> secretStore_;

  std::mutex teardownMutex_;
  std::vector<std::function<void()>> teardown_;

  std::recursive_mutex instancesMutex_;
  std::map<std::type_index, std::shared_ptr<void>> instances_;
};

}  // namespace zivora
