#include "platform/linux/CurlHandlePool.h"

#include <utility>

#include "platform/linux/CurlSupport.h"

namespace zivora::platform {

CurlHandlePool::Lease::Lease(std::shared_ptr<CurlHandlePool> pool, CURL* handle)
    : pool_(std::move(pool)), handle_(handle) {}

CurlHandlePool::Lease::Lease(Lease&& other) noexcept
    : pool_(std::move(other.pool_)), handle_(std::exchange(other.handle_, nullptr)) {}

CurlHandlePool::Lease& CurlHandlePool::Lease::operator=(Lease&& other) noexcept {
  if (this != &other) {
    Lease old(std::move(*this));
    pool_ = std::move(other.pool_);
    handle_ = std::exchange(other.handle_, nullptr);
  }
  return *this;
}

CurlHandlePool::Lease::~Lease() {
  if (handle_ && pool_) pool_->giveBack(handle_);
}

std::shared_ptr<CurlHandlePool> CurlHandlePool::make(std::size_t maxIdle) {
  return std::shared_ptr<CurlHandlePool>(new CurlHandlePool(maxIdle));
}

CurlHandlePool::CurlHandlePool(std::size_t maxIdle) : maxIdle_(maxIdle) {
  if (curl::globalInitResult() != CURLE_OK) return;
  share_ = curl_share_init();
  if (!share_) return;  // every handle then keeps its own sessions
  curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &CurlHandlePool::lock);
  curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &CurlHandlePool::unlock);
  curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
  curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
}

CurlHandlePool::~CurlHandlePool() {
  // Handles go before the share they use.
  for (CURL* handle : idle_) curl_easy_cleanup(handle);
  if (share_) curl_share_cleanup(share_);
}

CurlHandlePool::Lease CurlHandlePool::acquire() {
  CURL* handle = nullptr;
  {
    std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      handle = idle_.back();
      idle_.pop_back();
    }
  }
  if (!handle) handle = curl_easy_init();
  if (!handle) return {};
  if (share_) curl_easy_setopt(handle, CURLOPT_SHARE, share_);
  return Lease(shared_from_this(), handle);
}

// A reset keeps the handle's open connections and forgets every option, so
// the next user starts from libcurl's defaults.
void CurlHandlePool::giveBack(CURL* handle) {
  curl_easy_reset(handle);
  {
    std::lock_guard lock(mutex_);
    if (idle_.size() < maxIdle_) {
      idle_.push_back(handle);
      return;
    }
  }
  curl_easy_cleanup(handle);
}

void CurlHandlePool::lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
  static_cast<CurlHandlePool*>(self)->mutexFor(data).lock();
}

void CurlHandlePool::unlock(CURL*, curl_lock_data data, void* self) {
  static_cast<CurlHandlePool*>(self)->mutexFor(data).unlock();
}

std::mutex& CurlHandlePool::mutexFor(curl_lock_data data) {
  return shareMutexes_[static_cast<std::size_t>(data) % CURL_LOCK_DATA_LAST];
}

}  // namespace zivora::platform
