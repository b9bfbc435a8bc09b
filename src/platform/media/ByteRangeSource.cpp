#include "platform/media/ByteRangeSource.h"

#include <algorithm>

#include "util/Guard.h"

namespace zivora::media {

ByteRangeSource::ByteRangeSource(std::shared_ptr<MediaAsset> asset, dispatch::Queue& mainQueue,
                                 std::function<void()> stalled, std::int64_t readAhead)
    : asset_(std::move(asset)),
      mainQueue_(mainQueue),
      stalled_(std::move(stalled)),
      readAhead_(readAhead) {}

LoadingRequest::Answer ByteRangeSource::read(std::int64_t offset, std::int64_t length,
                                             bool* interrupted) {
  if (interrupted) *interrupted = false;
  Part part{nullptr, offset, length};
  {
    std::lock_guard lock(mutex_);
    if (flushing_ && !shutDown_) {
      if (interrupted) *interrupted = true;
      return {};
    }
    if (shutDown_ || asset_->isLoadingCancelled()) return {};
    if (auto answer = answeredLocked(offset, length)) return std::move(*answer);
    // The player's own length stays the floor, unclipped.
    part.request = std::make_shared<LoadingRequest>(offset, std::max(length, readAhead_));
    if (!asset_->trackRead(part.request)) return {};
    recent_.push_back(part.request);
    if (recent_.size() > kKeptRequests) forgetLocked(recent_.front());
    waiting_ = part;
  }
  mainQueue_.async([weak = weak_from_this(), part] {
    if (auto self = weak.lock()) {
      self->offerToDelegate(part);
    } else {
      part.request->cancel();
    }
  });
  auto answer = part.request->waitForPart(offset, length);
  {
    std::lock_guard lock(mutex_);
    if (waiting_ && waiting_->request == part.request) waiting_.reset();
    if (answer.outcome == LoadingRequest::Outcome::Failed) {
      if (interrupted && flushing_ && !shutDown_) *interrupted = true;
      forgetLocked(part.request);
    }
  }
  const auto known = part.request->contentInformationRequest().contentLength();
  if (known > 0) contentLength_.store(known);
  return answer;
}

std::optional<LoadingRequest::Answer> ByteRangeSource::answeredLocked(std::int64_t offset,
                                                                      std::int64_t length) const {
  for (auto request = recent_.rbegin(); request != recent_.rend(); ++request) {
    if (auto answer = (*request)->answeredPart(offset, length)) return answer;
  }
  return std::nullopt;
}

void ByteRangeSource::forgetLocked(std::shared_ptr<LoadingRequest> request) {
  asset_->untrackRead(request);
  std::erase(recent_, request);
}

// Main queue. A read that was cancelled while the task waited (the item
// stopped) never reaches the delegate.
void ByteRangeSource::offerToDelegate(const Part& part) {
  guarded("ByteRangeSource", "offerToDelegate", [&] {
    const auto& request = part.request;
    if (request->isCancelled() || request->isFinished()) return;
    auto delegate = asset_->resourceLoaderDelegate();
    if (!delegate || !delegate->shouldWaitForLoadingOfRequestedResource(request)) {
      request->finishLoadingWithError();
      return;
    }
    if (part.isWaiting() && playing_.load() && stalled_) stalled_();
  });
}

void ByteRangeSource::shutdown() {
  std::shared_ptr<LoadingRequest> waiting;
  {
    std::lock_guard lock(mutex_);
    shutDown_ = true;
    if (waiting_) waiting = waiting_->request;
    while (!recent_.empty()) forgetLocked(recent_.front());
  }
  if (waiting) waiting->cancel();
}

void ByteRangeSource::setFlushing(bool flushing) {
  std::shared_ptr<LoadingRequest> waiting;
  {
    std::lock_guard lock(mutex_);
    flushing_ = flushing;
    if (flushing && waiting_) waiting = waiting_->request;
  }
  if (waiting) waiting->cancel();
}

bool ByteRangeSource::isWaitingForBytes() {
  std::lock_guard lock(mutex_);
  return waiting_ && waiting_->isWaiting();
}

void ByteRangeSource::setPlaying(bool playing) {
  playing_.store(playing);
  if (!playing) return;
  std::optional<Part> waiting;
  {
    std::lock_guard lock(mutex_);
    waiting = waiting_;
  }
  if (waiting && waiting->isWaiting() && stalled_) {
    mainQueue_.async([stalled = stalled_] { guarded("ByteRangeSource", "setPlaying", stalled); });
  }
}

}  // namespace zivora::media
