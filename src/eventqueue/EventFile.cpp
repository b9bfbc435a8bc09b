#include "eventqueue/EventFile.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <system_error>
#include <utility>

#include "util/ZVLog.h"

namespace zivora {
namespace {

constexpr std::size_t kChunk = 256;
// What one read brings in: a page holds a few events of usual size.
constexpr std::size_t kBlock = 4096;
// More digits than this cannot be an offset into a file of this kind.
constexpr std::size_t kMaxOffsetDigits = 18;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool isAscii(std::string_view text) {
  for (unsigned char c : text)
    if (c > 0x7F) return false;
  return true;
}

// The header "-!N": N, or nothing when the first line is not a header.
std::optional<std::int64_t> parseHeader(std::string_view line) {
  if (line.size() < 3 || line[0] != '-' || line[1] != '!') return std::nullopt;
  std::int64_t value = 0;
  std::size_t digits = 0;
  for (std::size_t i = 2; i < line.size() && line[i] >= '0' && line[i] <= '9'; ++i, ++digits) {
    if (digits == kMaxOffsetDigits) return std::nullopt;
    value = value * 10 + (line[i] - '0');
  }
  if (digits == 0) return std::nullopt;
  return value;
}

}  // namespace

// One open descriptor of the event file; closed with the object unless it
// is only borrowed (the descriptor the object keeps for draining).
class EventFile::Handle {
 public:
  Handle(platform::FileSystem& io, int fd, bool owned = true) : io_(io), fd_(fd), owned_(owned) {}
  ~Handle() {
    if (owned_) io_.close(fd_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  std::int64_t size() {
    off_t size = io_.size(fd_);
    if (size < 0) fail("fstat");
    return size;
  }

  // Up to `count` bytes at `offset`; fewer at the end of the file. A read
  // brings in a whole block and later reads inside it are answered from
  // memory: a consumption reads the oldest line and then the one after it,
  // which mostly share a block.
  std::string read(std::int64_t offset, std::size_t count) {
    if (auto cached = fromBlock(offset, count)) return std::move(*cached);
    const std::size_t wanted = std::max(count, kBlock);
    block_.resize(wanted);
    ssize_t got = io_.pread(fd_, block_.data(), wanted, offset);
    if (got < 0) {
      block_.clear();
      fail("read");
    }
    block_.resize(static_cast<std::size_t>(got));
    blockStart_ = offset;
    blockReachesEnd_ = static_cast<std::size_t>(got) < wanted;
    return block_.substr(0, count);
  }

  // Writes all of `bytes`, carrying on after short writes.
  void write(std::int64_t offset, std::string_view bytes) {
    keepBlockCurrent(offset, bytes);
    while (!bytes.empty()) {
      ssize_t put = io_.pwrite(fd_, bytes.data(), bytes.size(), offset);
      if (put < 0) fail("write");
      if (put == 0) {
        errno = EIO;
        fail("write");
      }
      bytes.remove_prefix(static_cast<std::size_t>(put));
      offset += put;
    }
  }

  void truncate(std::int64_t size) {
    block_.clear();
    io_.ftruncate(fd_, size);
  }

  void sync() {
    if (io_.fdatasync(fd_) != 0) fail("fdatasync");
  }

 private:
  // The block's bytes at `offset`: `count` of them, or fewer when the block
  // ends at the end of the file. Nothing when the block does not hold them.
  std::optional<std::string> fromBlock(std::int64_t offset, std::size_t count) const {
    const std::int64_t end = blockStart_ + static_cast<std::int64_t>(block_.size());
    if (block_.empty() || offset < blockStart_ || offset > end) return std::nullopt;
    const auto available = static_cast<std::size_t>(end - offset);
    if (available < count && !blockReachesEnd_) return std::nullopt;
    return block_.substr(static_cast<std::size_t>(offset - blockStart_),
                         std::min(count, available));
  }

  // A write inside the block is copied into it, and one elsewhere in the
  // file leaves it as it is (the header's, for one); a write that meets the
  // block only in part, or lengthens the file the block reaches the end
  // of, lets it go. Done before the write: should the write fail half-way,
  // the operation ends with it and the block goes with the handle.
  void keepBlockCurrent(std::int64_t offset, std::string_view bytes) {
    if (block_.empty()) return;
    const std::int64_t end = blockStart_ + static_cast<std::int64_t>(block_.size());
    const std::int64_t writeEnd = offset + static_cast<std::int64_t>(bytes.size());
    if (offset >= blockStart_ && writeEnd <= end) {
      block_.replace(static_cast<std::size_t>(offset - blockStart_), bytes.size(), bytes);
    } else if ((offset < end && writeEnd > blockStart_) || (blockReachesEnd_ && writeEnd > end)) {
      block_.clear();
    }
  }

  platform::FileSystem& io_;
  int fd_;
  bool owned_;
  std::string block_;
  std::int64_t blockStart_ = 0;
  bool blockReachesEnd_ = false;
};

EventFile::EventFile(EventFileOptions options)
    : options_(std::move(options)), mutex_(mutexFor(options_.path)) {
  if (!options_.io) options_.io = platform::FileSystem::posix();
}

EventFile::EventFile(EventFile&& other) noexcept
    : options_(std::move(other.options_)),
      mutex_(other.mutex_),
      consumedMarks_(other.consumedMarks_),
      syncedMarks_(other.syncedMarks_),
      drainFd_(std::exchange(other.drainFd_, -1)),
      liveFrom_(std::exchange(other.liveFrom_, -1)) {}

EventFile::~EventFile() {
  if (drainFd_ >= 0) options_.io->close(drainFd_);
}

std::shared_ptr<std::mutex> EventFile::mutexFor(const std::filesystem::path& path) {
  static std::mutex registryMutex;
  // Never destroyed: queues may still write while the process exits.
  static auto& registry = *new std::map<std::string, std::shared_ptr<std::mutex>>();
  std::error_code error;
  auto absolute = std::filesystem::absolute(path, error);
  std::string key = (error ? path : absolute).lexically_normal().string();
  std::lock_guard lock(registryMutex);
  auto& slot = registry[key];
  if (!slot) slot = std::make_shared<std::mutex>();
  return slot;
}

// --- appending -------------------------------------------------------------

bool EventFile::save(std::string_view event) noexcept {
  bool saved = false;
  try {
    {
      std::lock_guard lock(*mutex_);
      saved = append(event);
    }
    options_.logSaved(event);
  } catch (const std::exception& error) {
    options_.logError("save:", error.what());
  } catch (...) {
    options_.logError("save:", "unknown error");
  }
  return saved;
}

bool EventFile::append(std::string_view event) {
  if (event.empty() || !isAscii(event) || event.find('\n') != std::string_view::npos)
    throw std::invalid_argument("an event is one non-empty line of ASCII text");

  auto& io = *options_.io;
  std::error_code ignored;
  std::filesystem::create_directories(options_.path.parent_path(), ignored);
  int fd = io.open(options_.path.c_str(), O_RDWR, 0);
  bool created = false;
  if (fd < 0 && errno == ENOENT) {
    fd = io.open(options_.path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    created = fd >= 0;
    if (fd < 0 && errno == EEXIST) fd = io.open(options_.path.c_str(), O_RDWR, 0);
  }
  if (fd < 0) fail("open");
  Handle file(io, fd);
  // The new name must survive a power cut as well as the bytes behind it.
  if (created && io.syncDirectory(options_.path.parent_path().c_str()) != 0)
    fail("fsync directory");

  const std::int64_t size = file.size();
  if (size >= options_.maxSize) return false;

  std::string line;
  line.reserve(event.size() + 2);
  if (size > 0 && file.read(size - 1, 1) != "\n") {
    repairTornTail(file, size);
    line += '\n';
  }
  line += event;
  line += '\n';
  try {
    file.write(size, line);
    file.sync();
    // The sync covered every mark written to the file before it.
    syncedMarks_ = consumedMarks_;
  } catch (...) {
    // Leave no half event behind; if even that fails the next save repairs it.
    file.truncate(size);
    throw;
  }
  return true;
}

// A crash during an append leaves text without its line feed at the end.
// It is marked consumed, and made durable, before the line feed that would
// turn it into a line of its own is written: in the other order a crash in
// between would leave the torn text as a live event.
void EventFile::repairTornTail(Handle& file, std::int64_t size) {
  std::int64_t start = 0;
  for (std::int64_t end = size; end > 0;) {
    std::int64_t from = end > static_cast<std::int64_t>(kChunk) ? end - kChunk : 0;
    std::string chunk = file.read(from, static_cast<std::size_t>(end - from));
    auto feed = chunk.rfind('\n');
    if (feed != std::string::npos) {
      start = from + static_cast<std::int64_t>(feed) + 1;
      break;
    }
    end = from;
  }
  // As in markConsumed: a consumed tail must never read as a header.
  file.write(start, size - start > 1 && file.read(start + 1, 1) == "!" ? "--" : "-");
  file.sync();
  options_.logRepair(
      fmt::format("torn tail of {} bytes at offset {} marked consumed", size - start, start));
}

// --- reading ---------------------------------------------------------------

// The line that starts at `offset`, read in chunks; nothing at the end of
// the file, and nothing for a last line without its line feed.
std::optional<EventFile::Line> EventFile::readLine(Handle& file, std::int64_t offset,
                                                   std::int64_t size) {
  Line line{offset, {}};
  while (offset < size) {
    std::string chunk = file.read(offset, kChunk);
    if (chunk.empty()) return std::nullopt;
    auto feed = chunk.find('\n');
    if (feed != std::string::npos) {
      line.text.append(chunk, 0, feed);
      return line;
    }
    line.text += chunk;
    offset += static_cast<std::int64_t>(chunk.size());
  }
  return std::nullopt;
}

// Where reading starts: the header's offset, 0 without a usable header, -1
// when the header says that everything is consumed (the file is deleted).
std::int64_t EventFile::findOffset(Handle& file, std::int64_t size) {
  auto first = readLine(file, 0, size);
  auto offset = first ? parseHeader(first->text) : std::nullopt;
  if (!offset) return 0;
  if (*offset >= size && size > 1) {
    unlinkFile();
    return -1;
  }
  // An offset that is not the start of a line came from a damaged header;
  // the consumed marks alone still say where the live events are.
  if (*offset > 0 && file.read(*offset - 1, 1) != "\n") {
    options_.logRepair(
        fmt::format("header offset {} is not a line start; reading from 0", *offset));
    return 0;
  }
  return *offset;
}

// The oldest live line, looked for from where the last call left off (the
// header's offset after the descriptor was opened). Lines that can never
// be sent are marked consumed (or, when empty, passed over) so that they
// do not stall the queue.
std::optional<EventFile::Line> EventFile::firstLiveLine(Handle& file, std::int64_t size) {
  std::int64_t offset = liveFrom_ >= 0 && liveFrom_ <= size ? liveFrom_ : findOffset(file, size);
  if (offset < 0) return std::nullopt;
  auto line = firstLiveLineFrom(file, offset, size);
  if (line) liveFrom_ = line->start;
  return line;
}

// The same from `offset`, a line start with nothing live before it.
std::optional<EventFile::Line> EventFile::firstLiveLineFrom(Handle& file, std::int64_t offset,
                                                            std::int64_t size) {
  while (auto line = readLine(file, offset, size)) {
    offset = line->start + static_cast<std::int64_t>(line->text.size()) + 1;
    if (line->text.empty()) {
      options_.logRepair(fmt::format("empty line at offset {} skipped", line->start));
      continue;
    }
    if (line->text[0] == '-') continue;
    if (!isAscii(line->text)) {
      markConsumed(file, *line);
      options_.logRepair(fmt::format("line of {} bytes at offset {} is not ASCII; marked consumed",
                                     line->text.size(), line->start));
      continue;
    }
    return line;
  }
  return std::nullopt;
}

std::optional<std::string> EventFile::firstEvent() noexcept {
  try {
    std::lock_guard lock(*mutex_);
    std::int64_t size = 0;
    int fd = drainDescriptor(size);
    if (fd < 0) return std::nullopt;
    Handle file(*options_.io, fd, false);
    if (size == 0) return std::nullopt;
    if (auto line = firstLiveLine(file, size)) return std::move(line->text);
  } catch (const std::exception& error) {
    forgetDrainDescriptor();
    options_.logError("getFirstEvent", error.what());
  }
  return std::nullopt;
}

bool EventFile::hasSavedEvents() noexcept { return firstEvent().has_value(); }

// --- consuming -------------------------------------------------------------

void EventFile::removeFirstLine() noexcept { consume(false); }

std::optional<std::string> EventFile::removeFirstLineAndReadNext() noexcept {
  return consume(true);
}

// One open and one look at the header for both the consumption and, when
// asked, the read of the event after it.
std::optional<std::string> EventFile::consume(bool readNext) noexcept {
  try {
    std::lock_guard lock(*mutex_);
    std::int64_t size = 0;
    int fd = drainDescriptor(size);
    if (fd < 0) return std::nullopt;
    Handle file(*options_.io, fd, false);
    if (size == 0) return std::nullopt;
    auto line = firstLiveLine(file, size);
    if (!line) return std::nullopt;
    ++consumedMarks_;
    if (setIgnoreLine(file, *line, size)) {
      // A deleted file has nothing left to sync; should the deletion not
      // survive a power cut, the file comes back as last synced.
      syncedMarks_ = consumedMarks_;
      return std::nullopt;
    }
    if (consumedMarks_ - syncedMarks_ >= options_.maxUnsyncedConsumed) {
      file.sync();
      syncedMarks_ = consumedMarks_;
    }
    const std::int64_t next = line->start + static_cast<std::int64_t>(line->text.size()) + 1;
    liveFrom_ = next;
    if (!readNext) return std::nullopt;
    if (auto after = firstLiveLineFrom(file, next, size)) {
      liveFrom_ = after->start;
      return std::move(after->text);
    }
  } catch (const std::exception& error) {
    forgetDrainDescriptor();
    options_.logError("removeFirstLine", error.what());
  }
  return std::nullopt;
}

void EventFile::syncConsumed() noexcept {
  try {
    std::unique_lock lock(*mutex_);
    const std::int64_t marks = consumedMarks_;
    if (syncedMarks_ >= marks) return;
    int fd = options_.io->open(options_.path.c_str(), O_RDWR, 0);
    if (fd < 0) {
      if (errno != ENOENT) fail("open");
      syncedMarks_ = std::max(syncedMarks_, marks);
      return;
    }
    Handle file(*options_.io, fd);
    // Marks written while the disk works are not counted as synced.
    lock.unlock();
    file.sync();
    lock.lock();
    syncedMarks_ = std::max(syncedMarks_, marks);
  } catch (const std::exception& error) {
    options_.logError("syncConsumed", error.what());
  }
}

int EventFile::unsyncedConsumed() const noexcept {
  std::lock_guard lock(*mutex_);
  return static_cast<int>(consumedMarks_ - syncedMarks_);
}

// A consumed line starts with '-'. One that went on with "!" and digits
// would then read as a header when it is the file's first line, so its
// second byte is overwritten as well.
void EventFile::markConsumed(Handle& file, const Line& line) {
  file.write(line.start, line.text.size() > 1 && line.text[1] == '!' ? "--" : "-");
}

// Marks `line` consumed, then, for the first mark of every
// kHeaderInterval, points the header past it. The header only spares a
// reader that starts afresh the walk over consumed lines; one that lags
// leaves that reader fewer than kHeaderInterval of them to step over, and
// the drain one write per event. The header is written only where it
// lands wholly on consumed bytes and leaves the line feed that ends `line`
// in place, so it can never swallow a live event. True when that emptied
// the file and it was deleted.
bool EventFile::setIgnoreLine(Handle& file, const Line& line, std::int64_t size) {
  const std::int64_t next = line.start + static_cast<std::int64_t>(line.text.size()) + 1;
  markConsumed(file, line);
  std::string header = fmt::format("-!{}\n-", next);
  if ((consumedMarks_ - 1) % kHeaderInterval == 0 &&
      static_cast<std::int64_t>(header.size()) < next) {
    file.write(0, header);
  }
  if (next < size || size < 2) return false;
  unlinkFile();
  return true;
}

void EventFile::removeFile() noexcept {
  try {
    std::lock_guard lock(*mutex_);
    unlinkFile();
  } catch (const std::exception& error) {
    options_.logError("removeFile", error.what());
  }
}

// The descriptor that reads and consumes stays open from one call to the
// next: a drain would otherwise open and close the file for every event.
// One whose file has lost its name (deleted, or replaced under the path) is
// dropped for the file now at the path. -1 when there is no file; throws
// when it cannot be opened. `size` is the file's size: the look that
// checks the name gives it as well.
int EventFile::drainDescriptor(std::int64_t& size) {
  platform::FileStatus status;
  if (drainFd_ >= 0) {
    if (options_.io->status(drainFd_, status) == 0 && status.links > 0) {
      size = status.size;
      return drainFd_;
    }
    dropDrainDescriptor();
  }
  int fd = options_.io->open(options_.path.c_str(), O_RDWR, 0);
  if (fd < 0) {
    if (errno == ENOENT) return -1;
    fail("open");
  }
  drainFd_ = fd;
  if (options_.io->status(fd, status) != 0) fail("fstat");
  size = status.size;
  return fd;
}

void EventFile::dropDrainDescriptor() noexcept {
  liveFrom_ = -1;
  if (drainFd_ < 0) return;
  options_.io->close(drainFd_);
  drainFd_ = -1;
}

// After a failure the descriptor is not trusted any further. The path's
// mutex is no longer held where a failure is caught.
void EventFile::forgetDrainDescriptor() noexcept {
  try {
    std::lock_guard lock(*mutex_);
    dropDrainDescriptor();
  } catch (...) {
    // Without the mutex the descriptor stays; the next call checks it anyway.
  }
}

void EventFile::unlinkFile() {
  dropDrainDescriptor();
  if (options_.io->unlink(options_.path.c_str()) != 0 && errno != ENOENT)
    ZVLog::system("Error remove file");
}

}  // namespace zivora
