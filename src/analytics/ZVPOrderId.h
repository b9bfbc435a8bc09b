#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace zivora {

class Context;
namespace platform {
class UserDefaults;
}

// The running order number of analytics records: 1 for the first record
// ever built, saved on every step so numbering continues across launches,
// wrapping from 2147483647 to 0. One per context.
class ZVPOrderId {
 public:
  explicit ZVPOrderId(std::shared_ptr<platform::UserDefaults> defaults);

  // The installed context's instance, loaded on creation; null without a
  // context.
  static std::shared_ptr<ZVPOrderId> sharedOrder() noexcept;
  static std::int32_t currentOrder() noexcept;
  static std::int32_t nextOrder() noexcept;

  void save() noexcept;
  void load() noexcept;
  std::int32_t getCurrentOrder() noexcept;
  std::int32_t getNextOrder() noexcept;

 private:
  std::shared_ptr<platform::UserDefaults> defaults_;
  // Stepped only from the analytics queue; atomic so that readers elsewhere
  // see a whole value.
  std::atomic<std::int32_t> order_{0};
};

}  // namespace zivora
