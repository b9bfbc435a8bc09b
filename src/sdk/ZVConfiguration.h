#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace zivora {

namespace dispatch {
class Queue;
}

class Context;
namespace platform {
class UserDefaults;
}

// The ad side's persistent settings: application id, application user id,
// the install's random id, the server-driven button images and the ad
// server endpoint. Every getter reads the "configuration" suite and every
// setter writes it through, so a value survives a restart as soon as its
// setter returns; except the application user id, which the host sets from
// its own thread: setAppUserId() keeps the value in memory, where every
// later read sees it at once, and writes it to the store on the SDK's
// "com.zivora.configuration" queue; a write takes the latest value, so the
// store follows the calls' order and never returns to an older value.
//
// Getters answer std::nullopt (nil) when the key is absent, the store could
// not be opened, or the read failed; setters remove the key for nullopt.
// Every operation runs inside the guard and never throws.
class ZVConfiguration : public std::enable_shared_from_this<ZVConfiguration> {
 public:
  explicit ZVConfiguration(std::weak_ptr<Context> context);

  // The installed context's one instance; null when no context is installed.
  static std::shared_ptr<ZVConfiguration> shared() noexcept;

  // The store, opened on first call. Null when it cannot be opened: that is
  // reported once as an analytics "error" event.
  std::shared_ptr<platform::UserDefaults> configuration() noexcept;

  std::optional<std::string> appId() noexcept;
  void setAppId(std::optional<std::string> appId) noexcept;

  // The value set last in this run, else the stored one.
  std::optional<std::string> appUserId() noexcept;
  // Returns without touching the store (its commit can take milliseconds);
  // the write follows on the configuration queue. Without a runtime it
  // writes through.
  void setAppUserId(std::optional<std::string> appUserId) noexcept;

  // The install's id, made and stored on first read and stable from then on.
  std::optional<std::string> randomUID() noexcept;
  // "<seconds since 1970 as int32>-<upper-case UUID>".
  std::optional<std::string> generateNewUID() noexcept;

  // Stored under "closeButton", "soundOnURL" and "soundOffURL": not the JSON
  // keys that fill them.
  std::optional<std::string> closeButtonURL() noexcept;
  void setCloseButtonURL(std::optional<std::string> url) noexcept;
  std::optional<std::string> soundOnButtonURL() noexcept;
  void setSoundOnButtonURL(std::optional<std::string> url) noexcept;
  std::optional<std::string> soundOffButtonURL() noexcept;
  void setSoundOffButtonURL(std::optional<std::string> url) noexcept;

  // The stored endpoint, else the host's ad endpoint option, else the
  // built-in TS_HOST_URL.
  std::optional<std::string> serverURL() noexcept;
  void setServerURL(std::optional<std::string> url) noexcept;

 private:
  std::optional<std::string> readString(const char* operation, const char* key) noexcept;
  void writeString(const char* operation, const char* key,
                   const std::optional<std::string>& value) noexcept;
  std::shared_ptr<platform::UserDefaults> openSuite() noexcept;
  std::string defaultServerURL() const;
  std::int64_t secondsSince1970() const;
  std::shared_ptr<dispatch::Queue> writeQueue();
  void writeAppUserId() noexcept;

  std::weak_ptr<Context> context_;
  std::mutex configurationMutex_;
  bool configurationOpened_ = false;
  std::shared_ptr<platform::UserDefaults> configutation_;

  // The user id set in this run (an engaged outer optional), whether a
  // write of it waits on the queue, and the queue.
  std::mutex appUserIdMutex_;
  std::optional<std::optional<std::string>> appUserId_;
  bool appUserIdWriteQueued_ = false;
  bool writeQueueMade_ = false;
  std::shared_ptr<dispatch::Queue> writeQueue_;

  // The server URL as stored, read once: every event sent asks for it.
  std::mutex serverURLMutex_;
  std::optional<std::optional<std::string>> serverURL_;
};

}  // namespace zivora
