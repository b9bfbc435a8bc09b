#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace zivora::platform {

// Easy handles kept between transfers. libcurl keeps a handle's open
// connections in the handle itself, so the next request to the same server
// through a returned handle goes out on the open connection: no new TCP
// connection and no TLS handshake. A handle serves one thread at a time
// (libcurl does not support sharing a connection cache between threads that
// transfer at once); TLS sessions and name lookups are shared between all
// handles of a pool, so a second connection resumes the TLS session.
class CurlHandlePool : public std::enable_shared_from_this<CurlHandlePool> {
 public:
  // A handle on loan; it goes back to the pool, reset, when the lease ends.
  class Lease {
   public:
    Lease() = default;
    Lease(std::shared_ptr<CurlHandlePool> pool, CURL* handle);
    Lease(Lease&& other) noexcept;
    Lease& operator=(Lease&& other) noexcept;
    ~Lease();
    CURL* get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

   private:
    std::shared_ptr<CurlHandlePool> pool_;
    CURL* handle_ = nullptr;
  };

  static std::shared_ptr<CurlHandlePool> make(std::size_t maxIdle = 4);
  ~CurlHandlePool();
  CurlHandlePool(const CurlHandlePool&) = delete;
  CurlHandlePool& operator=(const CurlHandlePool&) = delete;

  // A handle with the pool's share set and nothing else; empty when libcurl
  // cannot make one.
  Lease acquire();

 private:
  explicit CurlHandlePool(std::size_t maxIdle);
  void giveBack(CURL* handle);
  static void lock(CURL*, curl_lock_data data, curl_lock_access, void* self);
  static void unlock(CURL*, curl_lock_data data, void* self);
  std::mutex& mutexFor(curl_lock_data data);

  const std::size_t maxIdle_;
  CURLSH* share_ = nullptr;
  std::mutex shareMutexes_[CURL_LOCK_DATA_LAST];
  std::mutex mutex_;
  std::vector<CURL*> idle_;
};

}  // namespace zivora::platform
