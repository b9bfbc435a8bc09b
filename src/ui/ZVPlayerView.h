#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/media/MediaPlayer.h"
#include "platform/media/VideoFrame.h"
#include "ui/VideoPlanes.h"
#include "ui/View.h"

namespace zivora::ui {

// Shows a player's picture: the latest frame, aspect-fit and centred, over
// the view's background. Drawn into a canvas that carries video planes
// (a window on a display), a 4:2:0 picture is handed to the presenter
// instead, which shows it beneath the canvas: new pictures then replace it
// without redrawing the canvas or converting it on the way.
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
  // Keeps the newest frame for the next draw: a 4:2:0 picture as it is
  // (converted when drawn), else pixels in cairo's order: a copy of a
  // frame that is only lent, the frame's own buffer in exchange for the
  // previous one when it is handed over.
  void videoFrame(const media::VideoFrame& frame) override;
  void takeFrame(media::VideoFrame& frame) override;
  bool takesYuvPictures() const override { return true; }
  static bool isUsable(const media::VideoFrame& frame);
  void showYuv(std::shared_ptr<const media::YuvPicture> picture);
  // Where an unscaled picture's corner lands in device pixels, rounded to
  // the nearest: a picture shown at its own size is never resampled, also
  // while a slide moves it by fractions of a pixel. Empty when scaled.
  std::optional<Point> unscaledCorner(cairo_t* cr) const;
  // Leaves a transparent hole where the picture goes and shows the picture
  // there in the canvas' video planes; false (nothing drawn) when the
  // canvas has none or the view is not drawn straight into it (a
  // translucent ancestor draws into a group) or is turned.
  bool drawAsPlane(cairo_t* cr);
  // Converts the 4:2:0 picture straight into the pixels the clip leaves
  // to draw; false (nothing drawn) unless the target is an image in
  // cairo's layout and the picture is unscaled.
  bool drawYuvInPlace(cairo_t* cr) const;
  // Where the picture lies, aspect-fit and centred, in the view's points.
  Rect pictureRect() const;

  std::shared_ptr<media::MediaPlayer> player_;
  int width_ = 0;
  int height_ = 0;
  int stride_ = 0;
  std::vector<std::uint8_t> pixels_;
  std::shared_ptr<const media::YuvPicture> yuv_;
  // `pixels_` does not hold `yuv_` yet (it is converted on the first draw
  // that cannot write in place).
  bool pixelsStale_ = false;
  // The planes the latest draw showed the picture in.
  std::weak_ptr<VideoPlanes> planes_;
};

}  // namespace zivora::ui
