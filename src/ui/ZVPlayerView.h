#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/MediaPlayer.h"
#include "platform/media/VideoFrame.h"
#include "ui/View.h"

namespace zivora::ui {

// Shows a player's picture: the latest frame, aspect-fit and centred, over
// the view's background.
class ZVPlayerView : public View, private media::FrameSink {
 public:
  explicit ZVPlayerView(Rect frame = {});
  ~ZVPlayerView() override;

  std::shared_ptr<media::MediaPlayer> player() const { return player_; }
  // Takes over the player's frames (and lets go of the previous player's).
  void setPlayer(std::shared_ptr<media::MediaPlayer> player);
  bool hasPicture() const { return width_ > 0; }

 protected:
  void draw(cairo_t* cr) override;
  bool drawsContent() const override { return hasPicture(); }
  // The picture is opaque: it hides whatever lies under it.
  Rect opaqueRect() const override;

 private:
  // Keeps the newest frame, in cairo's pixel order already, for the next
  // draw: a copy of a frame that is only lent, the frame's own buffer in
  // exchange for the previous one when it is handed over.
  void videoFrame(const media::VideoFrame& frame) override;
  void takeFrame(media::VideoFrame& frame) override;
  static bool isUsable(const media::VideoFrame& frame);
  // Where the picture lies, aspect-fit and centred, in the view's points.
  Rect pictureRect() const;

  std::shared_ptr<media::MediaPlayer> player_;
  int width_ = 0;
  int height_ = 0;
  int stride_ = 0;
  std::vector<std::uint8_t> pixels_;
};

}  // namespace zivora::ui
