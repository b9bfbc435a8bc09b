#include <gtest/gtest.h>

#include "support/FakeMediaFactory.h"
#include "support/VirtualRuntime.h"

namespace zivora::test {
namespace {

using media::MediaItemStatus;
using media::MediaTime;

// The fake reports as a real item does: on the main queue, after the caller
// has finished what it was doing, to the observer in force at that moment.
class FakeMediaFactoryTest : public ::testing::Test {
 protected:
  VirtualRuntime runtime_;
  FakeMediaFactory factory_{runtime_.mainQueue()};
  std::vector<std::string> events_;

  media::MediaItemObserver recordingObserver() {
    media::MediaItemObserver observer;
    observer.statusChanged = [this](MediaItemStatus status) {
      events_.push_back(status == MediaItemStatus::ReadyToPlay ? "ready" : "failed");
    };
    observer.playedToEnd = [this] { events_.push_back("end"); };
    observer.failedToPlayToEnd = [this] { events_.push_back("failedToEnd"); };
    observer.playbackStalled = [this] { events_.push_back("stall"); };
    return observer;
  }
};

TEST_F(FakeMediaFactoryTest, ReportsOnTheMainQueueInOrder) {
  auto item = factory_.makeItem(std::make_shared<media::MediaAsset>("customLoader://a.mp4"));
  item->seekTo(MediaTime::fromSeconds(1.5));
  auto* fake = factory_.lastItem();
  fake->setDuration(MediaTime::fromSeconds(30));
  fake->postStatus(MediaItemStatus::ReadyToPlay);
  fake->postStall();
  fake->postPlayedToEnd();
  item->setObserver(recordingObserver());  // registered after the posts, as a view does
  EXPECT_EQ(item->status(), MediaItemStatus::Unknown);
  runtime_.runUntilIdle();
  EXPECT_EQ(events_, (std::vector<std::string>{"ready", "stall", "end"}));
  EXPECT_EQ(item->status(), MediaItemStatus::ReadyToPlay);
  EXPECT_EQ(fake->seeks(), std::vector<MediaTime>{MediaTime::fromSeconds(1.5)});
}

TEST_F(FakeMediaFactoryTest, AnObserverRemovedBeforeDeliveryHearsNothing) {
  auto item = factory_.makeItem(std::make_shared<media::MediaAsset>("customLoader://a.mp4"));
  item->setObserver(recordingObserver());
  factory_.lastItem()->postFailedToPlayToEnd("decoder gave up");
  item->setObserver({});
  runtime_.runUntilIdle();
  EXPECT_TRUE(events_.empty());
  EXPECT_FALSE(factory_.lastItem()->hasObserver());
  EXPECT_EQ(item->error(), "decoder gave up");
}

}  // namespace
}  // namespace zivora::test
