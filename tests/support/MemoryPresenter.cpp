#include "support/MemoryPresenter.h"

#include <memory>

#include "core/Context.h"
#include "ui/Display.h"
#include "ui/Presenter.h"

namespace zivora::test {

void useMemoryPresenter(dispatch::Runtime& runtime) {
  ui::Display::of(Context::current())
      ->setPresenter(std::make_unique<ui::Presenter>(ui::Screen{{640, 360}, 1, {}},
                                                     runtime.mainQueue(), runtime.clock()));
}

}  // namespace zivora::test
