#include "HeadlessDriver.h"

#include <chrono>
#include <future>
#include <memory>

#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "ui/Display.h"

namespace demo {
namespace {
zivora::ui::Presenter& presenter() {
  return zivora::ui::Display::of(zivora::Context::current())->presenter();
}
}  // namespace

bool HeadlessDriver::onMain(const std::function<bool()>& work) {
  auto context = zivora::Context::current();
  if (!context) return false;
  auto done = std::make_shared<std::promise<bool>>();
  auto answer = done->get_future();
  context->runtime().mainQueue().async([work, done] { done->set_value(work()); });
  if (answer.wait_for(std::chrono::seconds(10)) != std::future_status::ready) return false;
  return answer.get();
}

bool HeadlessDriver::tapCentre() {
  return onMain([] {
    const auto size = presenter().screen().size;
    return presenter().tap({size.width / 2, size.height / 2});
  });
}

bool HeadlessDriver::perform(zivora::ui::ScreenAction action) {
  return onMain([action] { return presenter().performAction(action); });
}

bool HeadlessDriver::snapshot(std::string caption) {
  return onMain([this, caption = std::move(caption)] {
    presenter().renderFrame(true);
    sheet_.add(presenter().canvas(), caption);
    return true;
  });
}

}  // namespace demo
