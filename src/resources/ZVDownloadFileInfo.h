#pragma once

#include <string>

namespace zivora {

// One entry of a batch download. `allowResume` is kept for callers but
// never read: every download resumes a partial file.
struct ZVDownloadFileInfo {
  bool allowResume = false;
  std::string fileName;
  std::string URL;
};

}  // namespace zivora
