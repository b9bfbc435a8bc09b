#include "platform/media/LoadingRequest.h"

#include <algorithm>

namespace zivora::media {

std::vector<ByteRange> LoadingRequest::slicesToAnswer(std::int64_t currentOffset,
                                                      std::int64_t finishOffset,
                                                      std::int64_t available) {
  std::vector<ByteRange> slices;
  const std::int64_t end = std::min(finishOffset, available);
  for (std::int64_t at = std::max<std::int64_t>(currentOffset, 0); at < end; at += kMaxSliceBytes) {
    slices.push_back({at, std::min(kMaxSliceBytes, end - at)});
  }
  return slices;
}

LoadingRequest::LoadingRequest(std::int64_t requestedOffset, std::int64_t requestedLength)
    : requestedOffset_(requestedOffset),
      requestedLength_(std::max<std::int64_t>(requestedLength, 0)) {}

void LoadingRequest::ContentInformationRequest::setContentType(std::string type) {
  std::lock_guard lock(owner_.mutex_);
  owner_.contentType_ = std::move(type);
}

void LoadingRequest::ContentInformationRequest::setByteRangeAccessSupported(bool supported) {
  std::lock_guard lock(owner_.mutex_);
  owner_.byteRangeAccessSupported_ = supported;
}

void LoadingRequest::ContentInformationRequest::setContentLength(std::int64_t length) {
  {
    std::lock_guard lock(owner_.mutex_);
    owner_.contentLength_ = length;
  }
  // A known length may shorten what the read needs.
  owner_.changed_.notify_all();
}

std::string LoadingRequest::ContentInformationRequest::contentType() const {
  std::lock_guard lock(owner_.mutex_);
  return owner_.contentType_;
}

bool LoadingRequest::ContentInformationRequest::isByteRangeAccessSupported() const {
  std::lock_guard lock(owner_.mutex_);
  return owner_.byteRangeAccessSupported_;
}

std::int64_t LoadingRequest::ContentInformationRequest::contentLength() const {
  std::lock_guard lock(owner_.mutex_);
  return owner_.contentLength_;
}

std::int64_t LoadingRequest::currentOffset() const {
  std::lock_guard lock(mutex_);
  return requestedOffset_ + static_cast<std::int64_t>(bytes_.size());
}

void LoadingRequest::respond(const std::uint8_t* data, std::size_t size) {
  {
    std::lock_guard lock(mutex_);
    if (finished_ || failed_ || data == nullptr) return;
    // One allocation for a read of up to a slice, however many pieces it
    // is answered in: fresh memory is costly enough to take it once.
    if (bytes_.capacity() == 0) {
      bytes_.reserve(static_cast<std::size_t>(std::min(requestedLength_, kMaxSliceBytes)));
    }
    const auto room = static_cast<std::size_t>(requestedLength_) - bytes_.size();
    bytes_.insert(bytes_.end(), data, data + std::min(size, room));
  }
  changed_.notify_all();
}

void LoadingRequest::finishLoading() {
  {
    std::lock_guard lock(mutex_);
    finished_ = true;
  }
  changed_.notify_all();
}

void LoadingRequest::finishLoadingWithError() { cancel(); }

void LoadingRequest::cancel() {
  {
    std::lock_guard lock(mutex_);
    if (!finished_) failed_ = true;
  }
  changed_.notify_all();
}

bool LoadingRequest::isFinished() const {
  std::lock_guard lock(mutex_);
  return finished_;
}

bool LoadingRequest::isCancelled() const {
  std::lock_guard lock(mutex_);
  return failed_;
}

std::int64_t LoadingRequest::partEndLocked(std::int64_t offset, std::int64_t length) const {
  const std::int64_t end = offset + std::max<std::int64_t>(length, 0);
  return contentLength_ > 0 ? std::clamp(contentLength_, offset, end) : end;
}

bool LoadingRequest::partAnsweredLocked(std::int64_t offset, std::int64_t length) const {
  return offset >= requestedOffset_ &&
         partEndLocked(offset, length) <=
             requestedOffset_ + static_cast<std::int64_t>(bytes_.size());
}

std::vector<std::uint8_t> LoadingRequest::copyLocked(std::int64_t offset,
                                                     std::int64_t length) const {
  const std::int64_t answeredEnd = requestedOffset_ + static_cast<std::int64_t>(bytes_.size());
  const std::int64_t from = std::max(offset, requestedOffset_);
  const std::int64_t to = std::min(partEndLocked(offset, length), answeredEnd);
  if (to <= from) return {};
  const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(from - requestedOffset_);
  return {begin, begin + static_cast<std::ptrdiff_t>(to - from)};
}

std::optional<LoadingRequest::Answer> LoadingRequest::answeredPart(std::int64_t offset,
                                                                   std::int64_t length) const {
  std::lock_guard lock(mutex_);
  if (failed_ || !partAnsweredLocked(offset, length)) return std::nullopt;
  return Answer{Outcome::Answered, copyLocked(offset, length)};
}

LoadingRequest::Answer LoadingRequest::waitForPart(std::int64_t offset, std::int64_t length) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return finished_ || failed_ || partAnsweredLocked(offset, length); });
  if (failed_) return {};
  const auto outcome = partAnsweredLocked(offset, length) ? Outcome::Answered : Outcome::Finished;
  return Answer{outcome, copyLocked(offset, length)};
}

bool LoadingRequest::isWaitingForPart(std::int64_t offset, std::int64_t length) const {
  std::lock_guard lock(mutex_);
  return !finished_ && !failed_ && !partAnsweredLocked(offset, length);
}

}  // namespace zivora::media
