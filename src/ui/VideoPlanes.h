#pragma once

#include <cairo.h>

#include <memory>
#include <vector>

#include "platform/media/YuvPicture.h"
#include "ui/Canvas.h"
#include "ui/Geometry.h"

namespace zivora::ui {

// Video pictures a window shows beneath the canvas instead of inside it: a
// player view that finds these planes on the surface it draws into leaves
// a transparent hole in the canvas where its picture goes and hands the
// picture over, and later pictures replace it without redrawing the canvas.
// The presenter puts each plane on the display first and the canvas (the
// controls) over it. A plane lasts while its view keeps drawing it: one
// whose place is redrawn without it is gone. Main queue only.
class VideoPlanes : public std::enable_shared_from_this<VideoPlanes> {
 public:
  struct Plane {
    // The view the picture belongs to (only compared, never followed).
    const void* owner = nullptr;
    std::shared_ptr<const media::YuvPicture> picture;
    // Where the picture goes, in canvas pixels (scaled when its size is
    // not the picture's).
    Rect pixels;
    // The picture changed since the presenter last took it.
    bool fresh = true;
    // Drawn (or untouched) by the canvas' latest composition.
    bool confirmed = true;
  };

  // The planes a canvas' surface carries, or null.
  static VideoPlanes* on(cairo_surface_t* surface);
  // Makes the planes found on `canvas`' surface (again after it is remade).
  void attach(Canvas& canvas);

  // From the owner's draw: its picture at `pixels` of the canvas.
  void show(const void* owner, std::shared_ptr<const media::YuvPicture> picture, Rect pixels);
  // A later picture of the same size for a plane already shown; false
  // (nothing kept) when there is none, and the owner must draw again.
  bool update(const void* owner, std::shared_ptr<const media::YuvPicture> picture);

  // The owner's plane goes (its view is going).
  void remove(const void* owner);

  // Around a composition of the canvas pixels within `damage`: planes there
  // that are not drawn again go.
  void beginComposition(const cairo_rectangle_int_t& damage);
  void endComposition();

  const std::vector<Plane>& planes() const { return planes_; }
  // Whether a picture or a plane changed since takeChanges().
  bool changed() const { return changed_; }
  // Marks every picture taken (the presenter has uploaded them).
  void takeChanges();

 private:
  std::vector<Plane> planes_;
  bool changed_ = false;
};

}  // namespace zivora::ui
