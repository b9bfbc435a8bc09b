#include "platform/linux/SoundOutputChoice.h"

#include <gst/gst.h>

#include <thread>
#include <utility>

#include "platform/linux/GstreamerInit.h"

namespace zivora::platform {

namespace {

// autoaudiosink's candidates, in its order: audio sinks of at least
// marginal rank that take raw audio, highest rank first. Their plugins are
// loaded here, on the thread that starts the probe: a plugin loaded
// (dlopen) on the probe's thread while the process exits can run GObject's
// library constructor a second time, which aborts in GLib's type system
// (seen in the exit test under AddressSanitizer).
std::vector<std::string> audioSinks() {
  std::vector<std::string> names;
  if (!ensureGstreamer()) return names;
  GList* factories = gst_element_factory_list_get_elements(
      GST_ELEMENT_FACTORY_TYPE_SINK | GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO, GST_RANK_MARGINAL);
  factories = g_list_sort(factories, gst_plugin_feature_rank_compare_func);
  GstCaps* raw = gst_caps_new_empty_simple("audio/x-raw");
  for (GList* item = factories; item; item = item->next) {
    auto* factory = GST_ELEMENT_FACTORY(item->data);
    if (!gst_element_factory_can_sink_any_caps(factory, raw)) continue;
    if (GstPluginFeature* loaded = gst_plugin_feature_load(GST_PLUGIN_FEATURE(factory))) {
      names.emplace_back(GST_OBJECT_NAME(factory));
      gst_object_unref(loaded);
    }
  }
  gst_caps_unref(raw);
  gst_plugin_feature_list_free(factories);
  return names;
}

// autoaudiosink's own test: a sink that reaches READY has found its device
// or server. It is closed again at once.
bool opens(const std::string& factory) {
  GstElement* sink = gst_element_factory_make(factory.c_str(), nullptr);
  if (!sink) return false;
  gst_object_ref_sink(sink);
  const bool opened = gst_element_set_state(sink, GST_STATE_READY) == GST_STATE_CHANGE_SUCCESS;
  gst_element_set_state(sink, GST_STATE_NULL);
  gst_object_unref(sink);
  return opened;
}

}  // namespace

SoundOutputChoice::SoundOutputChoice(Candidates candidates, TryOpen tryOpen, Launch launch,
                                     Clock clock, Settings settings)
    : candidates_(std::move(candidates)),
      tryOpen_(std::move(tryOpen)),
      launch_(std::move(launch)),
      clock_(std::move(clock)),
      settings_(settings) {}

std::shared_ptr<SoundOutputChoice> SoundOutputChoice::ofGstreamer(Settings settings) {
  return std::make_shared<SoundOutputChoice>(
      audioSinks, opens, [](std::function<void()> job) { std::thread(std::move(job)).detach(); },
      [] { return std::chrono::steady_clock::now(); }, settings);
}

const std::shared_ptr<SoundOutputChoice>& SoundOutputChoice::shared() {
  // Never destroyed: a probe may still run while the process exits.
  static const auto* choice = new std::shared_ptr<SoundOutputChoice>(ofGstreamer(Settings{}));
  return *choice;
}

void SoundOutputChoice::prepare() {
  bool start = false;
  {
    std::lock_guard lock(mutex_);
    start = !freshLocked() && startProbeLocked();
  }
  if (start) launchProbe();
}

std::optional<SoundOutputChoice::Output> SoundOutputChoice::known() {
  std::optional<Output> output;
  bool start = false;
  {
    std::lock_guard lock(mutex_);
    output = answer_;
    start = answer_ && !freshLocked() && startProbeLocked();
  }
  if (start) launchProbe();
  return output;
}

void SoundOutputChoice::whenKnown(std::function<void(Output)> then) {
  std::optional<Output> output;
  bool start = false;
  {
    std::lock_guard lock(mutex_);
    output = answer_;
    if (!output) waiting_.push_back(std::move(then));
    start = (!output || !freshLocked()) && startProbeLocked();
  }
  if (start) launchProbe();
  if (output) then(*output);
}

void SoundOutputChoice::deviceFailed(const std::string& factory) {
  bool start = false;
  {
    std::lock_guard lock(mutex_);
    if (!answer_ || answer_->kind != Kind::Device || answer_->factory != factory) return;
    answer_.reset();
    start = startProbeLocked();
  }
  if (start) launchProbe();
}

bool SoundOutputChoice::awaitProbe(std::chrono::steady_clock::duration limit) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [this] { return !probing_; });
}

bool SoundOutputChoice::startProbeLocked() {
  if (probing_) return false;
  probing_ = true;
  return true;
}

// Outside the lock: a launcher may run the job before it returns.
void SoundOutputChoice::launchProbe() {
  try {
    launch_([self = shared_from_this(), candidates = candidates_()] { self->probe(candidates); });
  } catch (...) {
    // No thread to probe on: what waits hears silence, and a later item
    // probes again.
    answer(Output{}, false);
  }
}

void SoundOutputChoice::probe(const std::vector<std::string>& candidates) {
  for (const std::string& factory : candidates) {
    {
      std::lock_guard lock(mutex_);
      if (opening_.count(factory)) continue;  // still stuck since an earlier probe
    }
    if (attempt(factory) == Attempt::Opened) {
      answer(Output{Kind::Device, factory}, true);
      return;
    }
  }
  answer(Output{}, true);
}

// The open runs on a thread of its own so that the probe can go on without
// it: an open that never returns costs a thread, not the choice.
SoundOutputChoice::Attempt SoundOutputChoice::attempt(const std::string& factory) {
  auto result = std::make_shared<std::optional<bool>>();
  {
    std::lock_guard lock(mutex_);
    opening_.insert(factory);
  }
  try {
    launch_([self = shared_from_this(), factory, result] {
      self->opened(factory, self->tryOpen_(factory), result);
    });
  } catch (...) {
    opened(factory, false, result);
  }
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, settings_.openLimit, [&] { return result->has_value(); }))
    return Attempt::TooSlow;
  return **result ? Attempt::Opened : Attempt::Refused;
}

void SoundOutputChoice::opened(const std::string& factory, bool success,
                               const std::shared_ptr<std::optional<bool>>& result) {
  std::lock_guard lock(mutex_);
  *result = success;
  opening_.erase(factory);
  // A slow output that opened after all (a sound server starting on
  // demand): silence is no longer the right answer.
  if (success && answer_ && answer_->kind == Kind::Silent && !probing_) answer_.reset();
  changed_.notify_all();
}

void SoundOutputChoice::answer(Output output, bool remember) {
  std::vector<std::function<void(Output)>> waiting;
  {
    std::lock_guard lock(mutex_);
    if (remember) {
      answer_ = output;
      answeredAt_ = clock_();
    }
    probing_ = false;
    waiting.swap(waiting_);
    changed_.notify_all();
  }
  for (auto& then : waiting) then(output);
}

bool SoundOutputChoice::freshLocked() const {
  return answer_ && clock_() - answeredAt_ < settings_.maxAge;
}

}  // namespace zivora::platform
