#include "support/RecordingAnalytics.h"

namespace zivora::test {

void RecordingAnalytics::sendException(const ZVException& exception, std::string_view className,
                                       std::string_view method) noexcept {
  std::lock_guard lock(mutex_);
  exceptions_.push_back(
      {exception.name(), exception.reason(), std::string(className), std::string(method)});
}

void RecordingAnalytics::sendEvent(std::string_view eventName, std::string_view className,
                                   std::string_view method, std::string_view message) noexcept {
  std::lock_guard lock(mutex_);
  events_.push_back(
      {std::string(eventName), std::string(className), std::string(method), std::string(message)});
}

void RecordingAnalytics::sendEvent(std::string_view eventName, ZVPCustomParams params) noexcept {
  std::lock_guard lock(mutex_);
  records_.push_back({std::string(eventName), std::move(params)});
}

std::vector<RecordingAnalytics::Record> RecordingAnalytics::records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

void RecordingAnalytics::sendInvokeDelegate(std::string_view shortName) noexcept {
  std::lock_guard lock(mutex_);
  invokedDelegates_.emplace_back(shortName);
}

void RecordingAnalytics::appOpen() noexcept {}

std::vector<std::string> RecordingAnalytics::invokedDelegates() const {
  std::lock_guard lock(mutex_);
  return invokedDelegates_;
}

std::vector<RecordingAnalytics::Exception> RecordingAnalytics::exceptions() const {
  std::lock_guard lock(mutex_);
  return exceptions_;
}

std::vector<RecordingAnalytics::Event> RecordingAnalytics::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

}  // namespace zivora::test
