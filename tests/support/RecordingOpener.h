#pragma once

#include <string>
#include <vector>

#include "platform/UrlOpener.h"

namespace zivora::test {

// An opener that opens anything it is handed and writes the address down:
// the ad logic's own address rules are then the only wall. A test may name
// one address it says it cannot open.
class RecordingOpener final : public platform::UrlOpener {
 public:
  bool canOpenURL(const std::string& url) override { return url != refused; }
  bool openURL(const std::string& url) override {
    opened.push_back(url);
    return true;
  }
  std::vector<std::string> opened;
  std::string refused;
};

}  // namespace zivora::test
