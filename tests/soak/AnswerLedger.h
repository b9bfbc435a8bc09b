#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <vector>

namespace zivora::soak {

// Squares the host's ad requests against the SDK's answers, from the sample
// host's output: the "cacheVideo P" and "showVideo P" steps, and the
// "delegate: ..." lines. A cache request is answered by videoDidCache or
// videoDidFailToLoad; a show request by videoWindowDidClose (the end of its
// close sequence) or videoDidFailToLoad. An answer with no request of its
// placement waiting is a second answer.
class AnswerLedger {
 public:
  struct Summary {
    std::size_t requests = 0;
    std::size_t answeredOnce = 0;
    std::size_t answeredTwice = 0;  // extra answers
    std::size_t neverAnswered = 0;  // open when the host ended on its own
    std::size_t cutOff = 0;         // open when the soak killed the host
  };

  // One host run's output; `killed` when the soak ended the run.
  void readHostOutput(const std::filesystem::path& file, bool killed);
  // One line of it (the text after the time stamp).
  void noteLine(std::string_view line);
  // The run is over: what is still open was never answered, or was cut off.
  void endRun(bool killed);

  Summary summary() const { return summary_; }

 private:
  struct Open {
    bool show;
    std::string placement;
  };
  bool answer(std::string_view placement, bool cache, bool show);

  std::vector<Open> open_;
  Summary summary_;
};

}  // namespace zivora::soak
