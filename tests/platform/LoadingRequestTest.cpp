#include <gtest/gtest.h>

#include <numeric>

#include "platform/media/LoadingRequest.h"

namespace zivora::media {
namespace {

constexpr std::int64_t kMiB = LoadingRequest::kMaxSliceBytes;

std::vector<std::uint8_t> bytes(std::size_t count, std::uint8_t first = 0) {
  std::vector<std::uint8_t> data(count);
  std::iota(data.begin(), data.end(), first);
  return data;
}

TEST(LoadingRequestTest, SlicesAnswersAtOneMebibyteClampedToTheReadAndTheBytesThere) {
  // 2.5 MiB available, read to 3 MiB: two whole slices and a half one.
  EXPECT_EQ(LoadingRequest::slicesToAnswer(0, 3 * kMiB, 5 * kMiB / 2),
            (std::vector<ByteRange>{{0, kMiB}, {kMiB, kMiB}, {2 * kMiB, kMiB / 2}}));
  // The end of the read comes before the end of the bytes.
  EXPECT_EQ(LoadingRequest::slicesToAnswer(1000, 6000, 10 * kMiB),
            (std::vector<ByteRange>{{1000, 5000}}));
  // Nothing beyond what is on disk, nothing once the read is complete.
  EXPECT_TRUE(LoadingRequest::slicesToAnswer(3000, 6000, 3000).empty());
  EXPECT_TRUE(LoadingRequest::slicesToAnswer(6000, 6000, 10000).empty());
  EXPECT_TRUE(LoadingRequest::slicesToAnswer(5000, 4000, 10000).empty());
}

TEST(LoadingRequestTest, AnswersInOrderAndDropsBytesBeyondTheRead) {
  LoadingRequest request(1000, 5000);
  EXPECT_EQ(request.currentOffset(), 1000);
  request.respond(bytes(2000));
  EXPECT_EQ(request.currentOffset(), 3000);
  EXPECT_TRUE(request.isWaitingForPart(1000, 5000));
  request.respond(bytes(4000, 200));  // 1000 too many
  EXPECT_EQ(request.currentOffset(), 6000);
  EXPECT_FALSE(request.isWaitingForPart(1000, 5000));

  const auto answer = request.waitForPart(1000, 5000);
  EXPECT_EQ(answer.outcome, LoadingRequest::Outcome::Answered);
  ASSERT_EQ(answer.bytes.size(), 5000u);
  EXPECT_EQ(answer.bytes[1999], bytes(2000).back());
  EXPECT_EQ(answer.bytes[2000], 200);
  // The answer keeps its place: a late catch-up finds nothing left to send.
  EXPECT_EQ(request.currentOffset(), 6000);
}

TEST(LoadingRequestTest, AReadPastTheEndNeedsOnlyTheBytesUpToTheContentLength) {
  // The player asks for its whole block; the resource ends 100 bytes in.
  LoadingRequest tail(9900, 4096);
  EXPECT_EQ(tail.requestedLength(), 4096);                          // unclipped
  EXPECT_EQ(tail.contentInformationRequest().contentLength(), -1);  // unknown until set
  tail.contentInformationRequest().setContentLength(10000);
  tail.respond(bytes(100));
  const auto answer = tail.waitForPart(9900, 4096);
  EXPECT_EQ(answer.outcome, LoadingRequest::Outcome::Answered);
  EXPECT_EQ(answer.bytes.size(), 100u);

  LoadingRequest beyond(10000, 4096);
  beyond.contentInformationRequest().setContentLength(10000);
  EXPECT_FALSE(beyond.isWaitingForPart(10000, 4096));
  EXPECT_TRUE(beyond.waitForPart(10000, 4096).bytes.empty());
}

TEST(LoadingRequestTest, FinishingEarlyReturnsWhatCameAndCancellingFails) {
  LoadingRequest finished(0, 5000);
  finished.respond(bytes(10));
  finished.finishLoading();
  finished.respond(bytes(10));  // after the finish: dropped
  const auto answer = finished.waitForPart(0, 5000);
  EXPECT_EQ(answer.outcome, LoadingRequest::Outcome::Finished);
  EXPECT_EQ(answer.bytes.size(), 10u);

  LoadingRequest cancelled(0, 5000);
  cancelled.respond(bytes(10));
  cancelled.cancel();
  EXPECT_TRUE(cancelled.isCancelled());
  EXPECT_FALSE(cancelled.isWaitingForPart(0, 5000));
  EXPECT_FALSE(cancelled.answeredPart(0, 10)) << "not even the bytes that came";
  EXPECT_EQ(cancelled.waitForPart(0, 5000).outcome, LoadingRequest::Outcome::Failed);

  LoadingRequest refused(0, 2);
  refused.finishLoadingWithError();
  EXPECT_EQ(refused.waitForPart(0, 2).outcome, LoadingRequest::Outcome::Failed);
}

TEST(LoadingRequestTest, APartIsAnsweredOnceItsBytesAreThereAndTheRequestStaysOpen) {
  LoadingRequest ahead(1000, 8000);
  ahead.respond(bytes(3000));
  EXPECT_FALSE(ahead.answeredPart(3000, 2000));  // 1000 bytes short
  EXPECT_TRUE(ahead.isWaitingForPart(3000, 2000));
  EXPECT_FALSE(ahead.answeredPart(500, 100));  // before the request
  const auto first = ahead.waitForPart(1500, 500);
  EXPECT_EQ(first.outcome, LoadingRequest::Outcome::Answered);
  ASSERT_EQ(first.bytes.size(), 500u);
  EXPECT_EQ(first.bytes.front(), bytes(3000)[500]);
  // Taking a part leaves the request to the delegate.
  ahead.respond(bytes(2000, 100));
  EXPECT_FALSE(ahead.isWaitingForPart(3000, 2000));
  EXPECT_EQ(ahead.answeredPart(3900, 200)->bytes.back(), 100 + 99);

  // The end of the resource shortens what a part needs; a request finished
  // early gives what came.
  ahead.contentInformationRequest().setContentLength(6000);
  EXPECT_EQ(ahead.answeredPart(5500, 4096)->bytes.size(), 500u);
  EXPECT_TRUE(ahead.answeredPart(6000, 10)->bytes.empty());
  LoadingRequest cut(0, 8000);
  cut.respond(bytes(100));
  cut.finishLoading();
  const auto last = cut.waitForPart(50, 200);
  EXPECT_EQ(last.outcome, LoadingRequest::Outcome::Finished);
  EXPECT_EQ(last.bytes.size(), 50u);
  cut.cancel();  // too late to fail what finished
  EXPECT_TRUE(cut.answeredPart(0, 100));
}

}  // namespace
}  // namespace zivora::media
