#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <numeric>
#include <stdexcept>
#include <thread>

#include "platform/linux/ThreadRuntime.h"
#include "platform/media/ByteRangeSource.h"
#include "support/HoldingLoader.h"

namespace zivora::media {
namespace {

using namespace std::chrono_literals;

// A read's result; a read still waiting after the limit fails the test.
template <class T>
T answerOf(std::future<T>& future) {
  if (future.wait_for(20s) != std::future_status::ready) throw std::runtime_error("no answer");
  return future.get();
}

class ByteRangeSourceThreadedTest : public ::testing::Test {
 protected:
  ByteRangeSourceThreadedTest() {
    asset_->setResourceLoaderDelegate(delegate_);
    source_ = std::make_shared<ByteRangeSource>(asset_, runtime_.mainQueue(), [this] {
      EXPECT_TRUE(runtime_.mainQueue().isCurrent());
      stalls_.set_value();
    });
  }

  std::future<LoadingRequest::Answer> readAsync(std::int64_t offset, std::int64_t length) {
    return std::async(std::launch::async,
                      [this, offset, length] { return source_->read(offset, length); });
  }

  dispatch::ThreadRuntime runtime_;
  std::shared_ptr<test::HoldingLoader> delegate_ = std::make_shared<test::HoldingLoader>();
  std::shared_ptr<MediaAsset> asset_ = std::make_shared<MediaAsset>("customLoader://clip.mp4");
  std::promise<void> stalls_;
  std::shared_ptr<ByteRangeSource> source_;
};

TEST_F(ByteRangeSourceThreadedTest, AReadWaitsUntilTheDelegateHasAnsweredEveryByte) {
  auto answer = readAsync(4096, 3000);
  auto request = delegate_->waitForRequest(0);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->requestedOffset(), 4096);
  EXPECT_EQ(request->requestedLength(), ByteRangeSource::kDefaultReadAhead);
  runtime_.mainQueue().async([request] { request->respond(std::vector<std::uint8_t>(1000, 7)); });
  EXPECT_EQ(answer.wait_for(50ms), std::future_status::timeout);
  runtime_.mainQueue().async([request] { request->respond(std::vector<std::uint8_t>(2000, 8)); });
  const auto result = answerOf(answer);
  EXPECT_EQ(result.outcome, LoadingRequest::Outcome::Answered);
  EXPECT_EQ(result.bytes.size(), 3000u);
  EXPECT_EQ(source_->contentLength(), 1 << 20);
}

TEST_F(ByteRangeSourceThreadedTest, ReadsInsideTheAnsweredBytesOfTheLatestRequestsNeedNoNewOne) {
  auto first = readAsync(1000, 200);
  auto request = delegate_->waitForRequest(0);
  ASSERT_TRUE(request);
  std::vector<std::uint8_t> bytes(9000);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  runtime_.mainQueue().async([&] { request->respond(bytes); });
  EXPECT_EQ(answerOf(first).bytes.size(), 200u);

  // Before, after and overlapping the first read: answered from memory.
  const auto inside = source_->read(5000, 4000);
  EXPECT_EQ(inside.outcome, LoadingRequest::Outcome::Answered);
  ASSERT_EQ(inside.bytes.size(), 4000u);
  EXPECT_EQ(inside.bytes.front(), bytes[4000]);
  EXPECT_EQ(source_->read(1000, 10).bytes.front(), bytes[0]);
  EXPECT_EQ(delegate_->requestCount(), 1u);

  // A byte past the answered ones takes a new request, even inside the
  // first one's range: only the newest request is still answered.
  auto beyond = readAsync(9999, 2);
  auto second = delegate_->waitForRequest(1);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->requestedOffset(), 9999);
  runtime_.mainQueue().async([second] {
    second->respond(std::vector<std::uint8_t>(100, 9));
    second->finishLoading();
  });
  EXPECT_EQ(answerOf(beyond).bytes, (std::vector<std::uint8_t>{9, 9}));
  // The request before it still serves what it was answered.
  EXPECT_EQ(source_->read(2000, 100).bytes.front(), bytes[1000]);
  EXPECT_EQ(delegate_->requestCount(), 2u);

  // Once the asset's loading is cancelled nothing is served, not even
  // bytes in memory.
  asset_->cancelLoading();
  EXPECT_EQ(source_->read(10000, 50).outcome, LoadingRequest::Outcome::Failed);
  EXPECT_EQ(delegate_->requestCount(), 2u);
}

TEST_F(ByteRangeSourceThreadedTest, AFlushBreaksTheWaitingReadAndRefusesReadsUntilItStops) {
  auto interruptedRead = [this](std::int64_t offset) {
    return std::async(std::launch::async, [this, offset] {
      bool interrupted = false;
      source_->read(offset, 4096, &interrupted);
      return interrupted;
    });
  };
  auto waiting = interruptedRead(0);
  ASSERT_TRUE(delegate_->waitForRequest(0));
  source_->setFlushing(true);
  EXPECT_TRUE(answerOf(waiting));
  auto during = interruptedRead(8192);
  EXPECT_TRUE(answerOf(during));
  source_->setFlushing(false);
  // After the flush a read waits for its answer again, and a refusal is not
  // an interruption.
  delegate_->accept = false;
  auto after = interruptedRead(8192);
  EXPECT_FALSE(answerOf(after));
  EXPECT_EQ(delegate_->requestCount(), 1u);
}

TEST_F(ByteRangeSourceThreadedTest, ShutdownAndCancelledLoadingBreakAWaitingRead) {
  auto first = readAsync(0, 4096);
  ASSERT_TRUE(delegate_->waitForRequest(0));
  source_->shutdown();
  EXPECT_EQ(answerOf(first).outcome, LoadingRequest::Outcome::Failed);
  // Later reads fail at once, without reaching the delegate.
  EXPECT_EQ(source_->read(0, 4096).outcome, LoadingRequest::Outcome::Failed);

  auto other = std::make_shared<ByteRangeSource>(asset_, runtime_.mainQueue(), nullptr);
  auto second = std::async(std::launch::async, [&] { return other->read(0, 4096); });
  ASSERT_TRUE(delegate_->waitForRequest(1));
  asset_->cancelLoading();
  EXPECT_EQ(answerOf(second).outcome, LoadingRequest::Outcome::Failed);
  EXPECT_TRUE(asset_->isLoadingCancelled());
}

TEST_F(ByteRangeSourceThreadedTest, ARefusedReadOrOneWithoutDelegateFails) {
  delegate_->accept = false;
  EXPECT_EQ(source_->read(0, 4096).outcome, LoadingRequest::Outcome::Failed);
  delegate_.reset();  // the asset holds it weakly
  EXPECT_EQ(source_->read(0, 4096).outcome, LoadingRequest::Outcome::Failed);
}

TEST_F(ByteRangeSourceThreadedTest, AReadWaitingWhilePlayingIsAStall) {
  auto stalled = stalls_.get_future();
  auto answer = readAsync(0, 4096);
  auto request = delegate_->waitForRequest(0);
  ASSERT_TRUE(request);
  // Prerolling: waiting is not a stall yet; it becomes one when play starts.
  EXPECT_EQ(stalled.wait_for(50ms), std::future_status::timeout);
  source_->setPlaying(true);
  EXPECT_EQ(stalled.wait_for(20s), std::future_status::ready);
  runtime_.mainQueue().async([request] { request->finishLoading(); });
  EXPECT_EQ(answerOf(answer).outcome, LoadingRequest::Outcome::Finished);
}

}  // namespace
}  // namespace zivora::media
