#pragma once

#include <functional>
#include <string>

#include "ContactSheet.h"
#include "ui/Window.h"

namespace demo {

// Stands in for the person in front of the screen when there is none: taps
// and presses on the ad screens, drawn in memory, and snapshots of them for
// the contact sheet. Everything runs on the SDK's main queue, where the
// screens live; each call waits for it.
class HeadlessDriver {
 public:
  // A tap in the middle of the screen (shows or hides the video controls).
  bool tapCentre();
  // A key or controller button press; false when the screen has no such control.
  bool perform(zivora::ui::ScreenAction action);
  // Draws the screens as they are now and keeps the picture.
  bool snapshot(std::string caption);
  const ContactSheet& sheet() const { return sheet_; }

 private:
  // Runs `work` on the main queue; false when it did not run within 10 s.
  bool onMain(const std::function<bool()>& work);

  ContactSheet sheet_;
};

}  // namespace demo
