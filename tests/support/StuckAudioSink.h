#pragma once

namespace zivora::test {

// A GStreamer audio sink, "zivorastucksink", registered at the highest
// rank, whose opening blocks until released: JACK's on a locked metadata
// database. Its first `opensFirst` opens succeed (a server that hangs only
// later). Released, it refuses to open; it leaves the candidates again when
// it goes. One at a time per process.
class StuckAudioSink {
 public:
  static constexpr const char* kName = "zivorastucksink";

  explicit StuckAudioSink(int opensFirst = 0);
  ~StuckAudioSink();
  StuckAudioSink(const StuckAudioSink&) = delete;
  StuckAudioSink& operator=(const StuckAudioSink&) = delete;

  // How many opens it has seen.
  int attempts() const;
  // The blocked opens return (failed), and later ones fail at once.
  void release();
};

}  // namespace zivora::test
