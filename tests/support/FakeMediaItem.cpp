#include "support/FakeMediaItem.h"

namespace zivora::test {

FakeMediaItem::FakeMediaItem(std::shared_ptr<media::MediaAsset> asset, dispatch::Queue& mainQueue)
    : asset_(std::move(asset)), mainQueue_(mainQueue) {}

void FakeMediaItem::setObserver(media::MediaItemObserver observer) {
  observed_ = observer.statusChanged || observer.playedToEnd || observer.failedToPlayToEnd ||
              observer.playbackStalled;
  observer_ = std::move(observer);
}

// The observer in force when the task runs is the one notified, as with a
// real item whose observers were removed meanwhile.
void FakeMediaItem::post(std::function<void(const media::MediaItemObserver&)> notify) {
  mainQueue_.async([this, alive = std::weak_ptr<bool>(alive_), notify = std::move(notify)] {
    if (alive.lock()) notify(observer_);
  });
}

void FakeMediaItem::postStatus(media::MediaItemStatus status, std::string error) {
  post([this, status, error = std::move(error)](const media::MediaItemObserver& observer) {
    status_ = status;
    error_ = error;
    if (observer.statusChanged) observer.statusChanged(status);
  });
}

void FakeMediaItem::postPlayedToEnd() {
  post([](const media::MediaItemObserver& observer) {
    if (observer.playedToEnd) observer.playedToEnd();
  });
}

void FakeMediaItem::postFailedToPlayToEnd(std::string error) {
  post([this, error = std::move(error)](const media::MediaItemObserver& observer) {
    error_ = error;
    if (observer.failedToPlayToEnd) observer.failedToPlayToEnd();
  });
}

void FakeMediaItem::postStall() {
  post([](const media::MediaItemObserver& observer) {
    if (observer.playbackStalled) observer.playbackStalled();
  });
}

}  // namespace zivora::test
