#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zivora {

// A screen as the platform describes it: a size in points and the number of
// pixels per point.
struct ScreenMetrics {
  double width = 0;
  double height = 0;
  double scale = 1;
};

// The device facts of the analytics records and the handshake. Every fact
// is read again on each call (the screen is what the display read when it
// opened on the main queue; 0 before, or with no display); a fact
// that cannot be read gives its fallback and the line
// "Backoffice [ZVPDeviceInfoHelper][<operation>] Error!". Identities live in
// the secret store of the installed context.
class ZVPDeviceInfoHelper {
 public:
  // initWithAppId:andGameUserId: — without a game user id the stored one is
  // used.
  ZVPDeviceInfoHelper(std::string appId, std::optional<std::string> gameUserId) noexcept;

  void initialize() noexcept {}

  std::int64_t clientTimestamp() noexcept;
  std::string clientPackageName() noexcept;
  std::string clientVersion() noexcept;
  std::string SDKVersion() noexcept;
  int platformId() noexcept;
  std::string deviceName() noexcept;
  std::string OSVersion() noexcept;
  std::string deviceId() noexcept;
  int dimensionX() noexcept;
  int dimensionY() noexcept;
  std::int64_t RAMSize() noexcept;
  static std::optional<std::string> GPUType() noexcept;
  static void setGPUType(std::optional<std::string> type) noexcept;
  std::string randomUID() noexcept;
  std::string language() noexcept;
  // Nullopt while ad tracking is limited.
  std::optional<std::string> advertisingId() noexcept;
  int limitAdTracking() noexcept;
  // Forgets the advertising identifier; the next read makes a new one.
  static bool resetAdvertisingId() noexcept;
  bool setGameUserId(std::optional<std::string> gameUserId) noexcept;
  std::optional<std::string> getGameUserId() const { return cachedGameUserId_; }

  const std::string& appId() const { return appId_; }

  // The screen's shorter and longer sides in whole pixels.
  static int shorterSide(const ScreenMetrics& screen);
  static int longerSide(const ScreenMetrics& screen);

  // What the last record sent; only kept here.
  std::optional<std::string> sendedTrackerId_;
  std::optional<std::string> sendedPushToken_;
  std::optional<std::string> sendedGameUserId_;

 private:
  // The stored identity under `key`, made by `make` and saved when absent.
  // Throws when the store fails otherwise: a locked store must not mint a
  // new identity.
  template <class Make>
  static std::string storedIdentity(const char* key, Make&& make);
  static ScreenMetrics screen();

  std::optional<std::string> cachedGameUserId_;
  std::string appId_;
};

}  // namespace zivora
