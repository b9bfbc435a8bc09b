#pragma once

#include <string>

namespace zivora::platform {

// Random (version 4) UUIDs in the platform's text form: upper-case
// hexadecimal with hyphens, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
class Uuid {
 public:
  // Throws std::runtime_error when no random source answers.
  static std::string uuidString();
};

}  // namespace zivora::platform
