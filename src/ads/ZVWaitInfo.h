#pragma once

#include <cstdint>
#include <string>

namespace zivora {

// A show or cache call the host made before initialisation finished, kept
// to be replayed once it has.
class ZVWaitInfo {
 public:
  // The only kind of ad that is parked and replayed.
  static constexpr std::uint64_t kVideoAdType = 2;

  ZVWaitInfo(std::string placementName, std::uint64_t adType, bool show)
      : show_(show), placementName_(std::move(placementName)), adType_(adType) {}

  bool show() const { return show_; }
  void setShow(bool show) { show_ = show; }
  const std::string& placementName() const { return placementName_; }
  void setPlacementName(std::string placementName) { placementName_ = std::move(placementName); }
  std::uint64_t adType() const { return adType_; }
  void setAdType(std::uint64_t adType) { adType_ = adType; }

 private:
  bool show_;
  std::string placementName_;
  std::uint64_t adType_;
};

}  // namespace zivora
