#include "sdk/Context.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "platform/HttpClient.h"
#include "platform/UrlOpener.h"
#include "platform/UserDefaults.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Runtime.h"
#include "platform/media/MediaFactory.h"
#include "sdk/Defaults.h"
#include "util/LogSink.h"
#include "util/Upcalls.h"

namespace zivora {

namespace {

std::mutex& installedMutex() {
  static std::mutex mutex;
  return mutex;
}

// Never destroyed: at process exit the SDK's threads may still be running
// and holding the context, so the exit handlers must not tear it down under
// them (a host that wants an orderly end resets the instance first).
std::shared_ptr<Context>& installed() {
  static auto* context = new std::shared_ptr<Context>();
  return *context;
}

// Whether the context installed last wrote to a sink of its own (guarded by
// installedMutex()).
bool& lastLogWasInjected() {
  static bool injected = false;
  return injected;
}

}  // namespace

std::filesystem::path Paths::cacheDirectory() const { return dataRoot / "Caches" / "Zivora"; }

std::filesystem::path Paths::documentsDirectory() const { return dataRoot / "Documents"; }

std::filesystem::path Paths::preferencesFile() const {
  return dataRoot / "Preferences" / "defaults.sqlite";
}

std::filesystem::path Paths::defaultDataRoot(const std::string& applicationName) {
  std::filesystem::path base;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') {
    base = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = std::filesystem::path(home) / ".local" / "share";
  } else {
    base = std::filesystem::temp_directory_path();
  }
  return base / (applicationName.empty() ? std::string("zivora-host") : applicationName) / "zivora";
}

Context::Context(HostOptions host, RuntimeOptions runtime)
    : host_(std::move(host)), runtime_(std::move(runtime)) {
  if (!runtime_.log) runtime_.log = LogSink::standardError();
  if (!runtime_.analytics) runtime_.analytics = defaults::analytics();
  if (!runtime_.files) runtime_.files = defaults::files();
  paths_.dataRoot = host_.dataRoot.empty() ? Paths::defaultDataRoot(host_.applicationName)
                                           : std::filesystem::path(host_.dataRoot);
}

Context::~Context() {
  std::vector<std::function<void()>> actions;
  {
    std::lock_guard lock(teardownMutex_);
    actions.swap(teardown_);
  }
  for (auto action = actions.rbegin(); action != actions.rend(); ++action) (*action)();
}

void Context::shutdown() {
  // The queues close first, so that a task failing from the abort cannot
  // schedule work that runs; the transfers are aborted before the wait, so
  // a task blocked on a stalled server ends soon instead of at a timeout.
  if (runtime_.runtime) runtime_.runtime->beginShutdown();
  if (runtime_.http) runtime_.http->abortAll();
  if (runtime_.runtime) runtime_.runtime->shutdown();
}

void Context::onTeardown(std::function<void()> action) {
  std::lock_guard lock(teardownMutex_);
  teardown_.push_back(std::move(action));
}

dispatch::Runtime& Context::runtime() const {
  if (!runtime_.runtime) throw std::logic_error("Context has no runtime");
  return *runtime_.runtime;
}

platform::HttpClient& Context::http() const {
  if (!runtime_.http) throw std::logic_error("Context has no HTTP client");
  return *runtime_.http;
}

std::shared_ptr<media::MediaFactory> Context::media() {
  if (runtime_.media) return runtime_.media;
  return instance<media::MediaFactory>([this] { return defaults::media(runtime().mainQueue()); });
}

platform::StreamingHttpClient& Context::downloads() const {
  if (!runtime_.downloads) throw std::logic_error("Context has no download client");
  return *runtime_.downloads;
}

std::shared_ptr<platform::UrlOpener> Context::opener() {
  if (runtime_.opener) return runtime_.opener;
  return instance<platform::UrlOpener>(
      [this] { return defaults::opener(runtime().globalQueue()); });
}

std::shared_ptr<platform::SecretStore> Context::secretStore() {
  std::lock_guard lock(secretStoreMutex_);
  if (!secretStore_) {
    secretStore_ =
        runtime_.secretStore ? runtime_.secretStore : defaults::secretStore(paths_.dataRoot);
  }
  return secretStore_;
}

std::shared_ptr<platform::UserDefaults> Context::userDefaults(const std::string& suite) {
  std::shared_ptr<platform::KeyValueStore> database;
  {
    // One attempt per context: a store that cannot be opened stays absent
    // instead of being retried (and logged) on every read.
    std::lock_guard lock(preferencesMutex_);
    if (!preferencesOpened_) {
      preferencesOpened_ = true;
      preferences_ = defaults::keyValueStore(paths_.preferencesFile());
    }
    database = preferences_;
  }
  if (!database) return nullptr;
  return std::make_shared<platform::UserDefaults>(std::move(database), suite);
}

std::shared_ptr<Context> Context::current() {
  std::lock_guard lock(installedMutex());
  return installed();
}

std::shared_ptr<Context> Context::require() {
  auto context = current();
  if (!context) throw std::logic_error("no installed context");
  return context;
}

std::shared_ptr<LogSink> Context::currentLog() {
  std::lock_guard lock(installedMutex());
  if (installed()) return installed()->runtime_.log;
  return lastLogWasInjected() ? nullptr : LogSink::standardError();
}

std::shared_ptr<LogSink> upcalls::logSink() { return Context::currentLog(); }

std::chrono::system_clock::time_point upcalls::wallNow() {
  auto context = Context::current();
  return context && context->hasRuntime() ? context->runtime().clock().wallNow()
                                          : std::chrono::system_clock::now();
}

void Context::install(std::shared_ptr<Context> context) {
  std::shared_ptr<Context> previous;
  {
    std::lock_guard lock(installedMutex());
    if (context) lastLogWasInjected() = context->runtime_.log != LogSink::standardError();
    previous = std::exchange(installed(), std::move(context));
  }
  // `previous` is released here, outside the lock.
}

}  // namespace zivora
