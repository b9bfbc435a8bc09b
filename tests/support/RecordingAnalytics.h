#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "analytics/ZVPAnalitics.h"

namespace zivora::test {

// Records what the guard and the classes report, whatever the profiling
// switch says.
class RecordingAnalytics final : public ZVPAnalitics {
 public:
  struct Exception {
    std::string name, reason, className, method;
  };
  struct Event {
    std::string eventName, className, method, message;
  };

  void sendException(const ZVException& exception, std::string_view className,
                     std::string_view method) noexcept override;
  void sendEvent(std::string_view eventName, std::string_view className, std::string_view method,
                 std::string_view message) noexcept override;

  void sendInvokeDelegate(std::string_view shortName) noexcept override;
  // The recorder opens no delivery queue and no sessions.
  void appOpen() noexcept override;
  void sendEvent(std::string_view eventName, ZVPCustomParams params) noexcept override;

  struct Record {
    std::string eventName;
    ZVPCustomParams params;
  };
  std::vector<Record> records() const;

  std::vector<Exception> exceptions() const;
  std::vector<std::string> invokedDelegates() const;
  std::vector<Event> events() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Exception> exceptions_;
  std::vector<Event> events_;
  std::vector<std::string> invokedDelegates_;
  std::vector<Record> records_;
};

}  // namespace zivora::test
