#include "support/PlanePresenter.h"

namespace zivora::test {

PlanePresenter::PlanePresenter(ui::Size points, double scale, VirtualRuntime& runtime)
    : Presenter(ui::Screen{points, scale, {}}, runtime.mainQueue(), runtime.clock()) {
  enableVideoPlanes();
}

}  // namespace zivora::test
