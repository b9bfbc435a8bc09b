#pragma once

#include <functional>
#include <string>

#include "zivora/Export.h"

namespace zivora {

// Who runs the SDK's main queue (screens, their timers, download callbacks,
// most host callbacks). The main queue's thread is also the one that drives
// SDL and the display: SDL allows one driving thread only.
enum class MainQueueMode {
  // The SDK runs it on a thread of its own (default), and opens and drives
  // its own window there. For hosts that do not use SDL themselves: a host
  // that has started SDL video gets ZivoraErrorDisplayUnavailable.
  OwnThread,
  // The host calls Zivora's pump once a frame from its own loop, on the
  // thread that drives SDL; it must keep pumping while no ad shows, since
  // downloads report through this queue (the start-up handshake waits for
  // the first pump).
  HostPumped,
};

// How much a log line matters: System lines are always written (the SDK's
// own messages, such as a call made before initialisation), Warning lines
// always, Debug lines only while Zivora::logEnable(true) is in force.
enum class ZivoraLogLevel { System, Warning, Debug };

struct SafeAreaInsets {
  double top = 0;
  double left = 0;
  double bottom = 0;
  double right = 0;
};

// Settings the host gives once, at initialisation. Every member has a
// working default; empty strings mean "use the default".
struct HostOptions {
  // Where the SDK keeps its cache, event queues and settings
  // (Caches/, Documents/, Preferences/). Default:
  // $XDG_DATA_HOME/<applicationName>/zivora.
  std::string dataRoot{};
  // The host application's name and version, sent to the ad server and used
  // to keep two applications' identities apart. Defaults: the executable's
  // name, and no version (sent as an empty text).
  std::string applicationName{};
  std::string applicationVersion{};
  // The ad server and analytics endpoints. They replace the built-in
  // defaults only: an endpoint that the ad server itself later hands out
  // still wins.
  std::string adEndpoint{};
  std::string analyticsEndpoint{};
  // A PEM bundle of the certificate authorities to trust instead of the
  // system's, for private servers. Server certificates are always verified.
  std::string caFile{};
  // Limits ad tracking: no advertising identifier is sent.
  bool limitAdTracking = false;
  // A store receipt to attach to purchase events, if the host's store has one.
  std::string receiptFile{};
  SafeAreaInsets safeArea{};
  MainQueueMode mainQueueMode = MainQueueMode::OwnThread;
  // Logical screen size in points; 0 means "ask the display".
  int screenWidth = 0;
  int screenHeight = 0;
  // With MainQueueMode::HostPumped: the host's own SDL_Window*, into which
  // the ad screens are drawn (through its SDL_Renderer) instead of a window
  // of the SDK's. The host then forwards its SDL events to
  // Zivora::handleEvent() and skips its own drawing while
  // Zivora::isPresenting() is true. Null: the SDK opens its own window.
  void* hostWindow = nullptr;
  // The graphics processor's name, reported with the device facts; empty
  // leaves it out.
  std::string gpuType{};
  // How long one cacheVideo() or showVideo() may wait for its answer, in
  // seconds, retries included. A request still unanswered then (the ad
  // neither cached nor on screen) ends with videoDidFailToLoad and
  // ZivoraErrorInitializationFailed (3), and the placement is idle again, so
  // the next call starts afresh. 0 (or less) sets no limit. Default: 180.
  int requestTimeBudgetSeconds = 180;
  // Receives every log line of the SDK instead of standard error (a game's
  // own console or log file). It is called from the SDK's threads, often
  // several at once, so it must be thread-safe, quick, and must not call
  // back into Zivora. Empty: lines go to standard error.
  std::function<void(ZivoraLogLevel level, const std::string& line)> log{};
  // Opens the addresses the ad screens hand on (a call to action's store or
  // web page) instead of the system's browser, for a game that shows them in
  // its store's overlay browser. Only absolute http and https addresses
  // reach it. It runs on the SDK's main queue and must return at once;
  // return false when the address was not opened. Empty: xdg-open.
  std::function<bool(const std::string& url)> openUrl{};
};

}  // namespace zivora
