#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

#include "FileMisbehaviour.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace zivora::sandbox {

// Answers GET /files/<name> from one directory, with single byte ranges:
// 200 for the whole file, 206 for "bytes=N-" or "bytes=N-M", 416 when N is
// at or past the end. Names holding '/' or ".." are refused with 404.
class FileResponder {
 public:
  explicit FileResponder(std::filesystem::path directory);

  void respond(std::string_view name, const httplib::Request& request,
               httplib::Response& response) const;
  // The same file answered with a fault. `stall` blocks where a stalling or
  // delaying fault pauses: until the pause ends (true) or the server stops
  // (false).
  void misbehave(const FileMisbehaviour& misbehaviour, std::string_view name,
                 const httplib::Request& request, httplib::Response& response,
                 std::function<bool()> stall) const;

  static bool isPlainName(std::string_view name);

 private:
  std::filesystem::path directory_;
};

}  // namespace zivora::sandbox
