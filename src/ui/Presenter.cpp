#include "ui/Presenter.h"

#include <algorithm>
#include <stdexcept>

#include "platform/dispatch/QueueAssert.h"

namespace zivora::ui {

std::shared_ptr<Presenter> lockPresenter(const std::weak_ptr<Presenter>& presenter) {
  auto shared = presenter.lock();
  if (!shared) throw std::logic_error("the presenter has gone");
  return shared;
}

Presenter::Presenter(Screen screen, dispatch::Queue& mainQueue, dispatch::Clock& clock)
    : mainQueue_(mainQueue),
      screen_(screen),
      animator_(mainQueue, clock),
      canvas_(screen.size, screen.scale) {}

Presenter::~Presenter() = default;

void Presenter::setScreen(const Screen& screen) {
  screen_ = screen;
  canvas_ = Canvas(screen.size, screen.scale);
  if (planes_) planes_->attach(canvas_);
  stackChanged_ = true;
}

void Presenter::enableVideoPlanes() {
  if (planes_) return;
  planes_ = std::make_shared<VideoPlanes>();
  planes_->attach(canvas_);
  stackChanged_ = true;
}

void Presenter::present(std::shared_ptr<Window> window) {
  ZV_ASSERT_ON(mainQueue_);
  if (!window) return;
  dismiss(*window);
  windows_.push_back(std::move(window));
  showing_.store(true, std::memory_order_release);
  stackChanged_ = true;
  windowsChanged();
}

void Presenter::dismiss(const Window& window) {
  ZV_ASSERT_ON(mainQueue_);
  auto found = std::find_if(windows_.begin(), windows_.end(),
                            [&](const std::shared_ptr<Window>& w) { return w.get() == &window; });
  if (found == windows_.end()) return;
  windows_.erase(found);
  showing_.store(!windows_.empty(), std::memory_order_release);
  stackChanged_ = true;
  windowsChanged();
}

bool Presenter::tap(Point point) {
  ZV_ASSERT_ON(mainQueue_);
  if (windows_.empty()) return false;
  // The topmost window is modal: a tap it does not take goes nowhere.
  auto top = windows_.back();
  return top->tap(point);
}

bool Presenter::performAction(ScreenAction action) {
  ZV_ASSERT_ON(mainQueue_);
  if (windows_.empty()) return false;
  auto top = windows_.back();
  return top->performAction(action);
}

bool Presenter::renderFrame(bool force) {
  ZV_ASSERT_ON(mainQueue_);
  const bool changed = stackChanged_ || std::any_of(windows_.begin(), windows_.end(),
                                                    [](const std::shared_ptr<Window>& w) {
                                                      return w->needsDisplay();
                                                    });
  if (!changed && !force) return false;
  PixelRegion damage;
  if (stackChanged_ || force) {
    damage.add(canvas_.pixelBounds());
  } else {
    for (const auto& window : windows_) canvas_.collectDamage(*window, damage);
    damage.intersect(canvas_.pixelBounds());
  }
  stackChanged_ = false;
  if (damage.isEmpty()) {
    // A change off the screen (a control parked outside it) shows nothing.
    for (auto& window : windows_) canvas_.settle(*window);
    return false;
  }
  std::vector<View*> roots;
  for (auto& window : windows_) roots.push_back(window.get());
  lastDamage_ = damage.rectangles();
  if (planes_) planes_->beginComposition(damage.extents());
  canvas_.compose(roots, damage, Color::clear());
  if (planes_) planes_->endComposition();
  return true;
}

}  // namespace zivora::ui
