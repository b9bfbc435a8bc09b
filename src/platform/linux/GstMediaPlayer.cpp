#include "platform/linux/GstMediaPlayer.h"

namespace zivora::platform {

GstMediaPlayer::GstMediaPlayer(std::shared_ptr<GstMediaItem> item)
    : item_(item), pipeline_(*item) {}

// The item may outlive its player (the view keeps it); its frames then stop.
GstMediaPlayer::~GstMediaPlayer() { pipeline_.setFrameSink(nullptr); }

void GstMediaPlayer::play() {
  rate_ = 1;
  pipeline_.setPlaying(true);
}

void GstMediaPlayer::pause() {
  rate_ = 0;
  pipeline_.setPlaying(false);
}

media::MediaTime GstMediaPlayer::currentTime() const { return pipeline_.position(); }

void GstMediaPlayer::setMuted(bool muted) { pipeline_.setMuted(muted); }

bool GstMediaPlayer::isMuted() const { return pipeline_.isMuted(); }

void GstMediaPlayer::setFrameSink(media::FrameSink* sink) { pipeline_.setFrameSink(sink); }

}  // namespace zivora::platform
