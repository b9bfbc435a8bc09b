#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resources/ZVDownloadDelegate.h"

namespace zivora::test {

// Writes down every download callback it hears, in order.
class RecordingDownloadDelegate final : public ZVDownloadDelegate {
 public:
  void startLoading(const std::string& name) override { events.push_back("start " + name); }
  void receiveData(std::int64_t bytes) override { received += bytes; }
  void finishLoading(const std::string& name) override { events.push_back("finish " + name); }
  void errorLoadingResource(const std::string& name, std::int32_t error) override {
    events.push_back("error " + name + " " + std::to_string(error));
  }
  std::vector<std::string> events;
  std::int64_t received = 0;
};

}  // namespace zivora::test
