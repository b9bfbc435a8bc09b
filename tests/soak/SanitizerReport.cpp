#include "SanitizerReport.h"

#include <array>
#include <fstream>
#include <string>
#include <string_view>

namespace zivora::soak {

bool SanitizerReport::foundIn(const std::filesystem::path& standardError) {
  static constexpr std::array<std::string_view, 5> kMarkers{
      "ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "WARNING: ThreadSanitizer",
      "ThreadSanitizer: ", " runtime error: "};
  std::ifstream in(standardError);
  std::string line;
  while (std::getline(in, line)) {
    for (std::string_view marker : kMarkers)
      if (line.find(marker) != std::string::npos) return true;
  }
  return false;
}

}  // namespace zivora::soak
