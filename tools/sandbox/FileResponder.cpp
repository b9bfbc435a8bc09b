#include "FileResponder.h"

#include <fmt/format.h>
#include <httplib.h>

#include <fstream>
#include <memory>

namespace zivora::sandbox {
namespace {

namespace fs = std::filesystem;

std::string contentTypeFor(const fs::path& path) {
  const std::string extension = path.extension().string();
  if (extension == ".mp4") return "video/mp4";
  if (extension == ".png") return "image/png";
  if (extension == ".jpg" || extension == ".jpeg") return "image/jpeg";
  if (extension == ".webp") return "image/webp";
  if (extension == ".json") return "application/json";
  if (extension == ".html") return "text/html";
  return "application/octet-stream";
}

void notFound(httplib::Response& response) {
  response.status = 404;
  response.set_content("not found", "text/plain");
}

}  // namespace

FileResponder::FileResponder(fs::path directory) : directory_(std::move(directory)) {}

bool FileResponder::isPlainName(std::string_view name) {
  return !name.empty() && name.find('/') == std::string_view::npos &&
         name.find("..") == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

void FileResponder::respond(std::string_view name, const httplib::Request& request,
                            httplib::Response& response) const {
  if (directory_.empty() || !isPlainName(name)) return notFound(response);
  const fs::path path = directory_ / std::string(name);
  std::error_code error;
  const auto size = fs::file_size(path, error);
  if (error || !fs::is_regular_file(path, error)) return notFound(response);

  // httplib parses the Range header into request.ranges and, given a content
  // provider of the whole file, sends 206 with Content-Range and only the
  // asked bytes. What it cannot express is a start past the end: 416 here.
  if (request.ranges.size() == 1 && request.ranges[0].first >= 0 &&
      static_cast<std::uintmax_t>(request.ranges[0].first) >= size) {
    response.status = 416;
    response.set_header("Content-Range", fmt::format("bytes */{}", size));
    return;
  }
  auto file = std::make_shared<std::ifstream>(path, std::ios::binary);
  if (!*file) return notFound(response);
  response.set_content_provider(
      static_cast<std::size_t>(size), contentTypeFor(path),
      [file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        char buffer[64 * 1024];
        file->seekg(static_cast<std::streamoff>(offset));
        const auto chunk = static_cast<std::streamsize>(std::min(length, sizeof buffer));
        file->read(buffer, chunk);
        const std::streamsize got = file->gcount();
        return got > 0 && sink.write(buffer, static_cast<std::size_t>(got));
      });
}

}  // namespace zivora::sandbox
