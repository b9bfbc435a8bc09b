#pragma once

#include <filesystem>
#include <memory>

#include "eventqueue/EventFileSaver.h"

namespace zivora {

// The ad events' file, "ts_events.dat" in the documents directory, with the
// log texts of the ad queue. The work is EventFile's.
class ZVFileSaver : public EventFileSaver {
 public:
  static constexpr char kFileName[] = "ts_events.dat";

  explicit ZVFileSaver(const std::filesystem::path& documentsDirectory,
                       std::shared_ptr<platform::FileSystem> io = nullptr);
};

}  // namespace zivora
