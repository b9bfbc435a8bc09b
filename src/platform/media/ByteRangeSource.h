#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/dispatch/Queue.h"
#include "platform/media/LoadingRequest.h"
#include "platform/media/MediaAsset.h"

namespace zivora::media {

// Turns the player's reads of a custom-loader asset into loading requests
// for the asset's delegate. read() runs on a streaming thread: it posts the
// request to the main queue, where the delegate takes it, and waits until
// it is answered. shutdown() (or the asset's cancelLoading()) breaks a
// waiting read at once, so the main queue never waits for a streaming
// thread blocked here.
//
// A demuxer reads sample by sample, a few hundred bytes of sound between
// the pictures, and a round trip through the main queue for each would
// make the player wait for whatever the main queue is doing (the download's
// chunks, above all). So each request asks for at least `readAhead` bytes
// and the reader takes only the part it needs; later reads that fall in
// the bytes the last two requests have been answered so far are served
// from them at once (two: the header's request must survive the demuxer's
// look at the end of the file). A read that needs bytes they do not have
// yet makes a new request, as before: only the newest request is one the
// delegate still answers.
class ByteRangeSource : public std::enable_shared_from_this<ByteRangeSource> {
 public:
  // One answer slice.
  static constexpr std::int64_t kDefaultReadAhead = LoadingRequest::kMaxSliceBytes;

  // Made with std::make_shared: main-queue work holds it weakly.
  // `stalled` runs on the main queue when a read waits for bytes while the
  // player is playing.
  ByteRangeSource(std::shared_ptr<MediaAsset> asset, dispatch::Queue& mainQueue,
                  std::function<void()> stalled, std::int64_t readAhead = kDefaultReadAhead);
  ByteRangeSource(const ByteRangeSource&) = delete;
  ByteRangeSource& operator=(const ByteRangeSource&) = delete;

  // Blocks the calling (streaming) thread until the read is answered,
  // finished or failed. `interrupted` (when given) tells a read failed by a
  // flush from one that was refused or cancelled.
  LoadingRequest::Answer read(std::int64_t offset, std::int64_t length,
                              bool* interrupted = nullptr);

  // Fails the waiting read and every later one. Idempotent, never blocks.
  void shutdown();

  // Between the player's flush start and stop (a flushing seek): the
  // waiting read and any new one fail at once as interrupted. The seek,
  // made on the main queue, waits for the streaming thread, and a read may
  // be waiting for the main queue to answer it.
  void setFlushing(bool flushing);

  // Whether the player plays (a waiting read is then a stall). Switching it
  // on while a read waits reports the stall.
  void setPlaying(bool playing);

  // True while a read waits for bytes.
  bool isWaitingForBytes();

  // The last content length the delegate gave, or -1.
  std::int64_t contentLength() const { return contentLength_.load(); }

 private:
  // The part of a request that a reader waits for.
  struct Part {
    std::shared_ptr<LoadingRequest> request;
    std::int64_t offset = 0;
    std::int64_t length = 0;
    bool isWaiting() const { return request->isWaitingForPart(offset, length); }
  };

  void offerToDelegate(const Part& part);
  // Under mutex_.
  std::optional<LoadingRequest::Answer> answeredLocked(std::int64_t offset,
                                                       std::int64_t length) const;
  void forgetLocked(std::shared_ptr<LoadingRequest> request);

  static constexpr std::size_t kKeptRequests = 2;

  const std::shared_ptr<MediaAsset> asset_;
  dispatch::Queue& mainQueue_;
  const std::function<void()> stalled_;
  const std::int64_t readAhead_;
  std::atomic<bool> playing_{false};
  std::atomic<std::int64_t> contentLength_{-1};

  std::mutex mutex_;
  bool shutDown_ = false;
  bool flushing_ = false;
  // The latest requests, oldest first, whose answered bytes serve later
  // reads.
  std::deque<std::shared_ptr<LoadingRequest>> recent_;
  std::optional<Part> waiting_;
};

}  // namespace zivora::media
