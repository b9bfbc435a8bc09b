#pragma once

namespace zivora::platform {

// OpenSSL frees its global state from an atexit handler. The SDK's threads
// are never joined at process exit (a host may return from main while one
// is sending), and a thread that used OpenSSL runs OpenSSL's per-thread
// clean-up when it ends: if that happens after the atexit handler, the
// clean-up takes a lock that is gone and the host dies in exit with
// SIGSEGV. Keeping OpenSSL's state until the process ends leaves it to the
// kernel to reclaim.
class OpenSslLifetime {
 public:
  // Tells OpenSSL not to clean up at exit. It counts only while nothing in
  // the process has initialised OpenSSL yet, so it runs when the SDK is
  // loaded and again before libcurl's global initialisation; later calls do
  // nothing.
  static void keepUntilProcessEnd() noexcept;
};

}  // namespace zivora::platform
