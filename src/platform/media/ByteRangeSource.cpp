#include "platform/media/ByteRangeSource.h"

#include "util/Guard.h"

namespace zivora::media {

ByteRangeSource::ByteRangeSource(std::shared_ptr<MediaAsset> asset, dispatch::Queue& mainQueue,
                                 std::function<void()> stalled)
    : asset_(std::move(asset)), mainQueue_(mainQueue), stalled_(std::move(stalled)) {}

LoadingRequest::Answer ByteRangeSource::read(std::int64_t offset, std::int64_t length,
                                             bool* interrupted) {
  if (interrupted) *interrupted = false;
  auto request = std::make_shared<LoadingRequest>(offset, length);
  {
    std::lock_guard lock(mutex_);
    if (flushing_ && !shutDown_) {
      if (interrupted) *interrupted = true;
      return {};
    }
    if (shutDown_ || !asset_->trackRead(request)) return {};
    current_ = request;
  }
  mainQueue_.async([weak = weak_from_this(), request] {
    if (auto self = weak.lock()) {
      self->offerToDelegate(request);
    } else {
      request->cancel();
    }
  });
  auto answer = request->waitForAnswer();
  {
    std::lock_guard lock(mutex_);
    if (current_ == request) current_.reset();
    if (interrupted && answer.outcome == LoadingRequest::Outcome::Failed && flushing_ &&
        !shutDown_) {
      *interrupted = true;
    }
  }
  asset_->untrackRead(request);
  const auto known = request->contentInformationRequest().contentLength();
  if (known > 0) contentLength_.store(known);
  return answer;
}

// Main queue. A read that was cancelled while the task waited (the item
// stopped) never reaches the delegate.
void ByteRangeSource::offerToDelegate(const std::shared_ptr<LoadingRequest>& request) {
  guarded("ByteRangeSource", "offerToDelegate", [&] {
    if (request->isCancelled() || request->isFinished()) return;
    auto delegate = asset_->resourceLoaderDelegate();
    if (!delegate || !delegate->shouldWaitForLoadingOfRequestedResource(request)) {
      request->finishLoadingWithError();
      return;
    }
    if (request->isWaitingForBytes() && playing_.load() && stalled_) stalled_();
  });
}

void ByteRangeSource::shutdown() {
  std::shared_ptr<LoadingRequest> waiting;
  {
    std::lock_guard lock(mutex_);
    shutDown_ = true;
    waiting = current_;
  }
  if (waiting) waiting->cancel();
}

void ByteRangeSource::setFlushing(bool flushing) {
  std::shared_ptr<LoadingRequest> waiting;
  {
    std::lock_guard lock(mutex_);
    flushing_ = flushing;
    if (flushing) waiting = current_;
  }
  if (waiting) waiting->cancel();
}

bool ByteRangeSource::isWaitingForBytes() {
  std::lock_guard lock(mutex_);
  return current_ && current_->isWaitingForBytes();
}

void ByteRangeSource::setPlaying(bool playing) {
  playing_.store(playing);
  if (!playing) return;
  std::shared_ptr<LoadingRequest> waiting;
  {
    std::lock_guard lock(mutex_);
    waiting = current_;
  }
  if (waiting && waiting->isWaitingForBytes() && stalled_) {
    mainQueue_.async([stalled = stalled_] { guarded("ByteRangeSource", "setPlaying", stalled); });
  }
}

}  // namespace zivora::media
