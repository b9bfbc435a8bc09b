#pragma once

#include <filesystem>
#include <memory>

#include "eventqueue/EventFileSaver.h"

namespace zivora {

// The analytics records' file, "tsp_events_profiling.dat" in the documents
// directory. Same format and rules as the ad events' file; its failures are
// written as "Backoffice [ZVPFileSaver][<operation>] Error!" and never
// reported to analytics.
class ZVPFileSaver : public EventFileSaver {
 public:
  static constexpr char kFileName[] = "tsp_events_profiling.dat";

  explicit ZVPFileSaver(const std::filesystem::path& documentsDirectory,
                        std::shared_ptr<platform::FileSystem> io = nullptr);
};

}  // namespace zivora
