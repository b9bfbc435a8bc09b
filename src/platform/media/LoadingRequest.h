#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zivora::media {

// A span of bytes in a resource: [offset, offset + length).
struct ByteRange {
  std::int64_t offset = 0;
  std::int64_t length = 0;
  friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

// One read of the player, handed to the asset's resource-loader delegate.
// The delegate (main queue) fills in the content information, answers bytes
// in order from currentOffset() and finishes the request; the streaming
// thread that made the read waits in waitForPart() until the bytes it
// needs are there, the request is finished, or the read is cancelled.
// Thread-safe.
class LoadingRequest {
 public:
  // Answers go out in slices of at most this many bytes, so no more than one
  // slice of a read is in memory on the delegate's side.
  static constexpr std::int64_t kMaxSliceBytes = 1 << 20;

  // The slices in which to answer from `currentOffset`, given that the bytes
  // of the resource exist up to `available` (exclusive) and the read ends at
  // `finishOffset` (exclusive): each at most kMaxSliceBytes, clamped to
  // [currentOffset, min(available, finishOffset)).
  static std::vector<ByteRange> slicesToAnswer(std::int64_t currentOffset,
                                               std::int64_t finishOffset, std::int64_t available);

  // `requestedLength` is the player's own length, not clipped to the
  // resource's end.
  LoadingRequest(std::int64_t requestedOffset, std::int64_t requestedLength);
  LoadingRequest(const LoadingRequest&) = delete;
  LoadingRequest& operator=(const LoadingRequest&) = delete;

  // The delegate's side -------------------------------------------------

  // What the delegate tells about the whole resource; filled on every read.
  class ContentInformationRequest {
   public:
    void setContentType(std::string type);
    void setByteRangeAccessSupported(bool supported);
    // -1 or 0: unknown.
    void setContentLength(std::int64_t length);

    std::string contentType() const;
    bool isByteRangeAccessSupported() const;
    std::int64_t contentLength() const;

   private:
    friend class LoadingRequest;
    explicit ContentInformationRequest(LoadingRequest& owner) : owner_(owner) {}
    LoadingRequest& owner_;
  };

  std::int64_t requestedOffset() const { return requestedOffset_; }
  std::int64_t requestedLength() const { return requestedLength_; }
  // Where the next answered byte goes: requestedOffset() + bytes answered.
  std::int64_t currentOffset() const;
  ContentInformationRequest& contentInformationRequest() { return contentInformation_; }

  // Appends bytes at currentOffset(). Bytes beyond the end of the read are
  // dropped; nothing is taken after the request finished or was cancelled.
  void respond(const std::uint8_t* data, std::size_t size);
  void respond(const std::vector<std::uint8_t>& data) { respond(data.data(), data.size()); }
  // The answer is complete: the waiting read returns what it has.
  void finishLoading();
  // The read fails (the delegate refused it, or the resource is gone).
  void finishLoadingWithError();

  bool isFinished() const;
  bool isCancelled() const;

  // The reader's side ---------------------------------------------------

  enum class Outcome {
    Answered,  // every byte the read needs is there
    Finished,  // finished early: the bytes that came (maybe none)
    Failed,    // refused or cancelled
  };
  struct Answer {
    Outcome outcome = Outcome::Failed;
    std::vector<std::uint8_t> bytes;
  };

  // Breaks a waiting read, which fails; later answers are dropped.
  void cancel();

  // A reader takes the part it needs, [offset, offset + length) within the
  // request: all of it, or less when it asked for more at once (a read
  // ahead) and takes later parts as the delegate answers them; the request
  // stays open for the delegate meanwhile. A part needs fewer bytes when
  // the content length says the resource ends first.

  // The part, when every byte it needs has been answered.
  std::optional<Answer> answeredPart(std::int64_t offset, std::int64_t length) const;
  // Blocks until the part is answered, or the request is finished (the
  // bytes that came) or cancelled.
  Answer waitForPart(std::int64_t offset, std::int64_t length);
  // True while the part lacks bytes and the request is neither finished nor
  // cancelled.
  bool isWaitingForPart(std::int64_t offset, std::int64_t length) const;

 private:
  // Where the bytes that [offset, offset + length) needs end.
  std::int64_t partEndLocked(std::int64_t offset, std::int64_t length) const;
  bool partAnsweredLocked(std::int64_t offset, std::int64_t length) const;
  // Bytes [offset, min(offset + length, end of the answered bytes)).
  std::vector<std::uint8_t> copyLocked(std::int64_t offset, std::int64_t length) const;

  const std::int64_t requestedOffset_;
  const std::int64_t requestedLength_;
  ContentInformationRequest contentInformation_{*this};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::uint8_t> bytes_;
  std::string contentType_;
  bool byteRangeAccessSupported_ = false;
  std::int64_t contentLength_ = -1;
  bool finished_ = false;
  bool failed_ = false;
};

}  // namespace zivora::media
