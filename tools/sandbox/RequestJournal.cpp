#include "RequestJournal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace zivora::sandbox {

RequestJournal::RequestJournal(const std::filesystem::path& directory) {
  if (directory.empty()) return;
  std::filesystem::create_directories(directory);
  const auto file = directory / kFileName;
  fd_ = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "open " + file.string());
}

RequestJournal::~RequestJournal() {
  if (fd_ >= 0) ::close(fd_);
}

void RequestJournal::append(const nlohmann::json& record) {
  if (fd_ < 0) return;
  std::string line = record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  line += '\n';
  std::lock_guard lock(mutex_);
  // One write keeps the line whole among concurrent appenders; a short
  // write (full disk) leaves a torn line that read() skips.
  [[maybe_unused]] const ssize_t written = ::write(fd_, line.data(), line.size());
}

std::vector<nlohmann::json> RequestJournal::read(const std::filesystem::path& file) {
  std::vector<nlohmann::json> records;
  std::ifstream in(file, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    // A line without its line feed is the torn tail of a killed writer.
    if (in.eof()) break;
    auto record = nlohmann::json::parse(line, nullptr, false);
    if (!record.is_discarded()) records.push_back(std::move(record));
  }
  return records;
}

}  // namespace zivora::sandbox
