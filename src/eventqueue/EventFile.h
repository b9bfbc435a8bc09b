#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileSystem.h"

namespace zivora {

// How one event file is named and how it speaks in the log. The ad queue and
// the analytics queue differ only in these.
struct EventFileOptions {
  std::filesystem::path path;
  // Files of this size or more take no new events.
  std::int64_t maxSize = 10485760;
  // Called after every save: attempt with the event's text (the debug line).
  std::function<void(std::string_view event)> logSaved = [](std::string_view) {};
  // Called when an operation fails, with the operation's name as the log
  // spells it ("save:", "removeFirstLine" ...) and the reason.
  std::function<void(std::string_view operation, std::string_view reason)> logError =
      [](std::string_view, std::string_view) {};
  // Called when a line that can never be sent (empty, not ASCII, a torn
  // tail) is marked consumed, with a description.
  std::function<void(std::string_view message)> logRepair = [](std::string_view) {};
  std::shared_ptr<platform::FileSystem> io = nullptr;  // null: the real system calls
  // Consumed marks are made durable in groups (syncConsumed()); should
  // nobody sync them, removeFirstLine() does once this many are unsynced.
  int maxUnsyncedConsumed = 128;
};

// A persistent queue of one-line events in a single append-only file.
//
// Live lines are events; a line whose first byte is '-' is consumed; a
// first line "-!N" says that every byte before offset N is consumed. An
// event is consumed by writing '-' over its first byte and then, for the
// first of every 32 consumptions, the header "-!P\n-" over the start of the
// file, where P is the offset after its line feed (a header that lags only
// leaves a reader consumed lines to step over); the file is deleted once
// nothing after P is left. Nothing else is ever rewritten, so a reader
// never sees a half-moved event.
//
// Delivery is at least once, so a consumed mark that a crash loses costs a
// duplicate, never a loss: marks are synced in groups, by the owner through
// syncConsumed() (which lets the queue go on while the disk works), and by
// removeFirstLine() itself when maxUnsyncedConsumed are waiting. A process
// that dies keeps its written marks in the page cache, so it resends at
// most the event it had in flight; a power cut can bring back at most
// maxUnsyncedConsumed delivered events (each save's sync covers the marks
// written before it, too).
//
// Every operation on one path holds that path's process-wide mutex, so a
// save never lands in a file that a reader has just unlinked. Reads and
// consumptions keep one descriptor open from call to call, and where they
// left off in it; a file that loses its name under it (deleted, or
// replaced) is let go for the one at the path. No operation throws:
// failures are logged and answer the neutral value.
class EventFile {
 public:
  explicit EventFile(EventFileOptions options);
  EventFile(EventFile&& other) noexcept;
  EventFile(const EventFile&) = delete;
  EventFile& operator=(const EventFile&) = delete;
  EventFile& operator=(EventFile&&) = delete;
  ~EventFile();

  // Appends `event` as one line and makes it durable. True when the event
  // is on disk; false when it was refused (empty, not ASCII, a line break in
  // it, the file at its size limit) or could not be written.
  bool save(std::string_view event) noexcept;
  // The oldest live event, left in place.
  std::optional<std::string> firstEvent() noexcept;
  bool hasSavedEvents() noexcept;
  // Consumes the oldest live event; deletes the file when it was the last.
  // The mark is synced with its group.
  void removeFirstLine() noexcept;
  // Makes the consumed marks written so far durable. The path's mutex is
  // not held while the disk syncs, so the other operations go on meanwhile.
  void syncConsumed() noexcept;
  // Marks written by this object and not yet synced.
  int unsyncedConsumed() const noexcept;
  // removeFirstLine(), then the event that is the oldest after it (as
  // firstEvent() would answer, at a fraction of its cost).
  std::optional<std::string> removeFirstLineAndReadNext() noexcept;
  void removeFile() noexcept;

  const std::filesystem::path& path() const { return options_.path; }

  // The mutex that guards every event file at `path` in this process.
  static std::shared_ptr<std::mutex> mutexFor(const std::filesystem::path& path);

 private:
  class Handle;
  static constexpr std::int64_t kHeaderInterval = 32;  // marks per header write
  struct Line {
    std::int64_t start = 0;  // offset of the line's first byte
    std::string text;        // without its line feed
  };

  bool append(std::string_view event);
  std::optional<Line> readLine(Handle& file, std::int64_t offset, std::int64_t size);
  std::int64_t findOffset(Handle& file, std::int64_t size);
  std::optional<Line> firstLiveLine(Handle& file, std::int64_t size);
  std::optional<Line> firstLiveLineFrom(Handle& file, std::int64_t offset, std::int64_t size);
  std::optional<std::string> consume(bool readNext) noexcept;
  void markConsumed(Handle& file, const Line& line);
  bool setIgnoreLine(Handle& file, const Line& line, std::int64_t size);
  void repairTornTail(Handle& file, std::int64_t size);
  void unlinkFile();
  int drainDescriptor(std::int64_t& size);
  void dropDrainDescriptor() noexcept;
  void forgetDrainDescriptor() noexcept;

  EventFileOptions options_;
  std::shared_ptr<std::mutex> mutex_;
  // Marks written and marks known durable, counted since construction;
  // guarded by *mutex_.
  std::int64_t consumedMarks_ = 0;
  std::int64_t syncedMarks_ = 0;
  // Kept open between reads and consumptions; guarded by *mutex_.
  int drainFd_ = -1;
  // A line start in the file behind drainFd_ with nothing live before it,
  // or -1: where the last read or consumption left off. Marks are never
  // taken back and lines never move, so it stays true whatever else
  // consumes from the file, and the header need not be read again.
  std::int64_t liveFrom_ = -1;
};

}  // namespace zivora
