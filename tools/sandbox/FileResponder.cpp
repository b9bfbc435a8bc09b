#include "FileResponder.h"

#include <fmt/format.h>
#include <httplib.h>

#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>

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

// httplib cuts any body to the asked range after the handler, which turns a
// short error page answered to "bytes=N-" into a 416. The request object is
// httplib's own non-const one, handed to routes as const.
void answerWholly(const httplib::Request& request) {
  const_cast<httplib::Request&>(request).ranges.clear();
}

void notFound(const httplib::Request& request, httplib::Response& response) {
  answerWholly(request);
  response.status = 404;
  response.set_content("not found", "text/plain");
}

// A body that does not end: 64 KiB chunks until the client hangs up, the
// server stops (`running` turns false) or, as a last bound for the sandbox's
// own sake, 256 MiB have gone out. Without a length (chunked), or with a
// length of 1 TiB that it never means to honour.
void sendEndlessly(bool hugeLength, const httplib::Request& request, httplib::Response& response,
                   std::function<bool()> running) {
  constexpr std::size_t kChunk = 64 * 1024;
  constexpr std::size_t kLastBound = 256u * 1024 * 1024;
  answerWholly(request);
  response.status = 200;
  auto provider = [running = std::move(running)](std::size_t sent, httplib::DataSink& sink) {
    static const std::string chunk(kChunk, 'z');
    if (sent >= kLastBound || !running()) return false;
    return sink.write(chunk.data(), chunk.size());
  };
  if (hugeLength) {
    response.set_content_provider(
        std::size_t{1} << 40, "video/mp4",
        [provider](std::size_t sent, std::size_t, httplib::DataSink& sink) mutable {
          return provider(sent, sink);
        });
  } else {
    response.set_chunked_content_provider(
        "video/mp4",
        [provider, sent = std::size_t{0}](std::size_t, httplib::DataSink& sink) mutable {
          const bool more = provider(sent, sink);
          sent += kChunk;
          return more;
        });
  }
}

}  // namespace

FileResponder::FileResponder(fs::path directory) : directory_(std::move(directory)) {}

bool FileResponder::isPlainName(std::string_view name) {
  return !name.empty() && name.find('/') == std::string_view::npos &&
         name.find("..") == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

void FileResponder::respond(std::string_view name, const httplib::Request& request,
                            httplib::Response& response) const {
  if (directory_.empty() || !isPlainName(name)) return notFound(request, response);
  const fs::path path = directory_ / std::string(name);
  std::error_code error;
  const auto size = fs::file_size(path, error);
  if (error || !fs::is_regular_file(path, error)) return notFound(request, response);

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
  if (!*file) return notFound(request, response);
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

void FileResponder::misbehave(const FileMisbehaviour& misbehaviour, std::string_view name,
                              const httplib::Request& request, httplib::Response& response,
                              std::function<bool()> stall) const {
  using Kind = FileMisbehaviour::Kind;
  if (misbehaviour.kind == Kind::NotFound || directory_.empty() || !isPlainName(name)) {
    return notFound(request, response);
  }
  if (misbehaviour.kind == Kind::Endless || misbehaviour.kind == Kind::HugeLength)
    return sendEndlessly(misbehaviour.kind == Kind::HugeLength, request, response,
                         std::move(stall));
  const fs::path path = directory_ / std::string(name);
  std::error_code error;
  const auto size = static_cast<std::size_t>(fs::file_size(path, error));
  if (error) return notFound(request, response);
  if (misbehaviour.kind == Kind::RangeNotSatisfiable) {
    response.status = 416;
    response.set_header("Content-Range", fmt::format("bytes */{}", size));
    return;
  }
  const bool ranged = request.ranges.size() == 1 && request.ranges[0].first >= 0;
  std::size_t offset = ranged ? static_cast<std::size_t>(request.ranges[0].first) : 0;
  if (misbehaviour.kind == Kind::IgnoreRange || offset > size) offset = 0;
  // The faults set their own status and Content-Range.
  answerWholly(request);
  if (misbehaviour.kind == Kind::IgnoreRange || !ranged) {
    response.status = 200;
  } else {
    response.status = 206;
    response.set_header("Content-Range",
                        misbehaviour.kind == Kind::BadContentRange
                            ? std::string("bytes ?")
                            : fmt::format("bytes {}-{}/{}", offset, size - 1, size));
  }
  std::optional<std::size_t> cutAt, stallAt;
  if (misbehaviour.kind == Kind::CutAfter) cutAt = misbehaviour.bytes;
  if (misbehaviour.kind == Kind::StallAfter || misbehaviour.kind == Kind::DelayAfter)
    stallAt = misbehaviour.bytes;
  auto file = std::make_shared<std::ifstream>(path, std::ios::binary);
  response.set_content_provider(
      size - offset, contentTypeFor(path),
      [file, offset, cutAt, stallAt, stall = std::move(stall)](std::size_t sent, std::size_t length,
                                                               httplib::DataSink& sink) mutable {
        if (cutAt && sent >= *cutAt) return false;
        if (stallAt && sent >= *stallAt) {
          stallAt.reset();
          if (!stall()) return false;
        }
        char buffer[64 * 1024];
        std::size_t chunk = std::min(length, sizeof buffer);
        if (cutAt) chunk = std::min(chunk, *cutAt - sent);
        if (stallAt) chunk = std::min(chunk, *stallAt - sent);
        file->seekg(static_cast<std::streamoff>(offset + sent));
        file->read(buffer, static_cast<std::streamsize>(chunk));
        const std::streamsize got = file->gcount();
        return got > 0 && sink.write(buffer, static_cast<std::size_t>(got));
      });
}

}  // namespace zivora::sandbox
