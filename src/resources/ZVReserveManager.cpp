#include "resources/ZVReserveManager.h"

#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {
constexpr char kClass[] = "ZVReserveManager";
}

std::shared_ptr<ZVReserveManager> ZVReserveManager::defaultManager() {
  auto context = Context::current();
  if (!context) return nullptr;
  return context->instance<ZVReserveManager>([] { return std::make_shared<ZVReserveManager>(); });
}

void ZVReserveManager::reserve(const std::string& fileName) {
  guarded(kClass, "reserve", [&] {
    if (fileName.empty()) {
      ZVLog::system("[ZVReserveManager][reserve] Error! File name is empty.");
      return;
    }
    std::lock_guard lock(mutex_);
    ++files_[fileName];
  });
}

void ZVReserveManager::unreserve(const std::string& fileName) {
  guarded(kClass, "unreserve", [&] {
    std::lock_guard lock(mutex_);
    auto found = files_.find(fileName);
    if (found == files_.end()) return;
    if (--found->second <= 0) files_.erase(found);
  });
}

void ZVReserveManager::unreserveAll(const std::string& fileName) {
  guarded(kClass, "unreserveAll", [&] {
    std::lock_guard lock(mutex_);
    files_.erase(fileName);
  });
}

bool ZVReserveManager::isReserved(const std::string& fileName) {
  return guarded(kClass, "isReserved", false, [&] {
    std::lock_guard lock(mutex_);
    auto found = files_.find(fileName);
    return found != files_.end() && found->second >= 1;
  });
}

}  // namespace zivora
