#pragma once

#include <memory>

#include "platform/media/MediaPlayer.h"
#include "ui/View.h"

namespace zivora::ui {

// Shows a player's picture: the latest frame, aspect-fit and centred, over
// the view's background.
class ZVPlayerView : public View {
 public:
  explicit ZVPlayerView(Rect frame = {});

  std::shared_ptr<platform::MediaPlayer> player() const { return player_; }
  // Takes over the player's frames. The view must be owned by a shared_ptr.
  void setPlayer(std::shared_ptr<platform::MediaPlayer> player);
  const platform::VideoFrame& lastFrame() const { return frame_; }

 protected:
  void draw(cairo_t* cr) override;

 private:
  std::shared_ptr<platform::MediaPlayer> player_;
  platform::VideoFrame frame_;
};

}  // namespace zivora::ui
