#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"

namespace zivora::ui {

class View;

// Property animations over given durations, advanced by a frame timer on
// the main queue that runs only while an animation does. Each frame hands
// the eased progress (0 ... 1, ease in and out) to the animation's `apply`;
// the last frame applies 1 and then runs `completion(true)`. Views being
// animated ignore taps until their animations end.
class Animator {
 public:
  using Apply = std::function<void(double progress)>;
  using Completion = std::function<void(bool finished)>;

  // About 60 frames a second.
  static constexpr dispatch::Duration kFrameInterval = std::chrono::microseconds(16667);

  Animator(dispatch::Queue& mainQueue, dispatch::Clock& clock);
  ~Animator();
  Animator(const Animator&) = delete;
  Animator& operator=(const Animator&) = delete;

  void animate(const std::shared_ptr<View>& view, dispatch::Duration duration, Apply apply,
               Completion completion = {});
  // Ends the view's animations at once: their end state is applied, then
  // their completions run with `false`.
  void removeAnimations(const View& view);
  bool isAnimating(const View& view) const;

  // Ease in and out: slow at both ends, symmetric around the middle.
  static double ease(double t);

 private:
  struct Animation {
    std::weak_ptr<View> view;
    const View* key;
    dispatch::Clock::SteadyTime start;
    dispatch::Duration duration;
    Apply apply;
    Completion completion;
  };

  void tick();
  void startTimer();
  void stopTimers();
  static void finish(Animation& animation, bool finished);

  dispatch::Queue& mainQueue_;
  dispatch::Clock& clock_;
  std::vector<Animation> animations_;
  dispatch::TaskHandle timer_;
  std::vector<dispatch::TaskHandle> endTimers_;
};

}  // namespace zivora::ui
