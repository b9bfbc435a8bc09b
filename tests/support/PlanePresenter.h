#pragma once

#include "support/VirtualRuntime.h"
#include "ui/Presenter.h"

namespace zivora::test {

// A presenter drawing into memory that, as a window on a display does,
// leaves video pictures out of its canvas and shows them on planes beneath
// it.
class PlanePresenter : public ui::Presenter {
 public:
  PlanePresenter(ui::Size points, double scale, VirtualRuntime& runtime);
};

}  // namespace zivora::test
