#include "support/FakeMediaPlayer.h"

namespace zivora::test {

void FakeMediaPlayer::play() {
  rate_ = 1;
  ++playCount_;
}

void FakeMediaPlayer::pause() { rate_ = 0; }

void FakeMediaPlayer::deliverFrame(const media::VideoFrame& frame) {
  if (sink_) sink_->videoFrame(frame);
}

}  // namespace zivora::test
