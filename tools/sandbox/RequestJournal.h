#pragma once

#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <vector>

namespace zivora::sandbox {

// An append-only record of what the server answered, one JSON document a
// line, kept in a state directory so that it outlives the server process:
// a soak that kills and restarts the server still sees every event that
// any of its incarnations accepted. Each line goes out in one write(2) on an
// O_APPEND descriptor before the reply leaves, so a killed server loses no
// line whose reply a client may have seen; at worst the last line is torn,
// and readers skip it.
class RequestJournal {
 public:
  static constexpr const char* kFileName = "journal.jsonl";

  // An empty directory keeps no journal; append() then does nothing.
  explicit RequestJournal(const std::filesystem::path& directory);
  ~RequestJournal();
  RequestJournal(const RequestJournal&) = delete;
  RequestJournal& operator=(const RequestJournal&) = delete;

  void append(const nlohmann::json& record);

  // The whole lines of a journal file; torn or unparsable lines are skipped.
  static std::vector<nlohmann::json> read(const std::filesystem::path& file);

 private:
  std::mutex mutex_;
  int fd_ = -1;
};

}  // namespace zivora::sandbox
