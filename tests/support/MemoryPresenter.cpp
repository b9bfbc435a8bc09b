#include "support/MemoryPresenter.h"

#include <memory>

#include "sdk/Context.h"
#include "ui/Display.h"
#include "ui/Presenter.h"

namespace zivora::test {

void useMemoryPresenter(dispatch::Runtime& runtime) {
  auto display = ui::Display::of(Context::current());
  display->setPresenter(std::make_unique<ui::Presenter>(ui::Screen{{640, 360}, 1, {}},
                                                        runtime.mainQueue(), runtime.clock()));
  // The display opens on the main queue before anything else, as at start-up.
  runtime.mainQueue().async([display] { display->open(); });
}

}  // namespace zivora::test
