#include "ui/Animator.h"

#include <algorithm>

#include "ui/View.h"

namespace zivora::ui {

Animator::Animator(dispatch::Queue& mainQueue, dispatch::Clock& clock)
    : mainQueue_(mainQueue), clock_(clock) {}

Animator::~Animator() {
  timer_.cancel();
  for (auto& end : endTimers_) end.cancel();
}

double Animator::ease(double t) {
  t = std::clamp(t, 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

void Animator::animate(const std::shared_ptr<View>& view, dispatch::Duration duration, Apply apply,
                       Completion completion) {
  if (!view) return;
  view->beginAnimation();
  animations_.push_back(
      {view, view.get(), clock_.steadyNow(), duration, std::move(apply), std::move(completion)});
  startTimer();
  // The last frame lands exactly at the end, not at the next frame tick, so
  // whatever follows an animation starts on time.
  endTimers_.push_back(mainQueue_.after(duration, [this] { tick(); }));
}

void Animator::startTimer() {
  if (timer_.valid() && !timer_.isCancelled()) return;
  timer_ = mainQueue_.every(kFrameInterval, [this] { tick(); });
}

void Animator::stopTimers() {
  timer_.cancel();
  for (auto& end : endTimers_) end.cancel();
  endTimers_.clear();
}

void Animator::finish(Animation& animation, bool finished) {
  if (auto view = animation.view.lock()) {
    if (animation.apply) animation.apply(1.0);
    view->endAnimation();
  }
  if (animation.completion) animation.completion(finished);
}

void Animator::tick() {
  const auto now = clock_.steadyNow();
  // Completions may start new animations: take the ones that end now out
  // of the list before running them.
  std::vector<Animation> ended;
  for (auto it = animations_.begin(); it != animations_.end();) {
    auto view = it->view.lock();
    const auto elapsed = now - it->start;
    if (view && elapsed < it->duration) {
      if (it->apply) {
        it->apply(ease(std::chrono::duration<double>(elapsed) /
                       std::chrono::duration<double>(it->duration)));
      }
      ++it;
    } else {
      ended.push_back(std::move(*it));
      it = animations_.erase(it);
    }
  }
  if (animations_.empty()) stopTimers();
  for (auto& animation : ended) finish(animation, true);
}

void Animator::removeAnimations(const View& view) {
  std::vector<Animation> removed;
  for (auto it = animations_.begin(); it != animations_.end();) {
    if (it->key == &view) {
      removed.push_back(std::move(*it));
      it = animations_.erase(it);
    } else {
      ++it;
    }
  }
  if (animations_.empty()) stopTimers();
  for (auto& animation : removed) finish(animation, false);
}

bool Animator::isAnimating(const View& view) const {
  return std::any_of(animations_.begin(), animations_.end(),
                     [&](const Animation& a) { return a.key == &view; });
}

}  // namespace zivora::ui
