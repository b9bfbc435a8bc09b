#pragma once

namespace zivora {

// The analytics module's own version, sent as bo_SDKVersion.
class ZVPSDKVersion {
 public:
  static const char* version() { return "1.1.2"; }
};

}  // namespace zivora
