#include "platform/linux/SoundOutputChoice.h"

#include <gst/gst.h>

#include <thread>
#include <utility>

#include "platform/linux/GstreamerInit.h"

namespace zivora::platform {

namespace {

// Whether an output of this factory opens: autoaudiosink's own test, a
// sink that reaches READY has found its device or server. It is closed again
// at once.
bool opens(GstElementFactory* factory) {
  GstElement* sink = gst_element_factory_create(factory, nullptr);
  if (!sink) return false;
  gst_object_ref_sink(sink);
  const bool opened = gst_element_set_state(sink, GST_STATE_READY) == GST_STATE_CHANGE_SUCCESS;
  gst_element_set_state(sink, GST_STATE_NULL);
  gst_object_unref(sink);
  return opened;
}

// The candidates autoaudiosink considers, in its order: audio sinks of at
// least marginal rank that take raw audio, highest rank first.
std::optional<std::string> probeAudioSinks() {
  if (!ensureGstreamer()) return std::nullopt;
  GList* factories = gst_element_factory_list_get_elements(
      GST_ELEMENT_FACTORY_TYPE_SINK | GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO, GST_RANK_MARGINAL);
  factories = g_list_sort(factories, gst_plugin_feature_rank_compare_func);
  GstCaps* raw = gst_caps_new_empty_simple("audio/x-raw");
  std::optional<std::string> chosen;
  for (GList* item = factories; item && !chosen; item = item->next) {
    auto* factory = GST_ELEMENT_FACTORY(item->data);
    if (gst_element_factory_can_sink_any_caps(factory, raw) && opens(factory)) {
      chosen = GST_OBJECT_NAME(factory);
    }
  }
  gst_caps_unref(raw);
  gst_plugin_feature_list_free(factories);
  return chosen;
}

}  // namespace

SoundOutputChoice::SoundOutputChoice(Probe probe, Launch launch, Clock clock,
                                     std::chrono::steady_clock::duration maxAge)
    : probe_(std::move(probe)),
      launch_(std::move(launch)),
      clock_(std::move(clock)),
      maxAge_(maxAge) {}

SoundOutputChoice& SoundOutputChoice::shared() {
  // Never destroyed: a probe may still run while the process exits.
  static auto* choice = new SoundOutputChoice(
      probeAudioSinks, [](std::function<void()> job) { std::thread(std::move(job)).detach(); },
      [] { return std::chrono::steady_clock::now(); });
  return *choice;
}

void SoundOutputChoice::prepare() {
  bool start = false;
  {
    std::lock_guard lock(mutex_);
    start = !freshLocked() && claimProbeLocked();
  }
  if (start) launchProbe();
}

SoundOutputChoice::Output SoundOutputChoice::current() {
  {
    std::lock_guard lock(mutex_);
    if (freshLocked()) return *answer_;
    if (!claimProbeLocked()) return {};
  }
  launchProbe();
  return {};
}

void SoundOutputChoice::deviceFailed(const std::string& factory) {
  {
    std::lock_guard lock(mutex_);
    if (!answer_ || answer_->kind != Kind::Device || answer_->factory != factory) return;
    answer_.reset();
    if (!claimProbeLocked()) return;
  }
  launchProbe();
}

bool SoundOutputChoice::claimProbeLocked() {
  if (probing_) return false;
  probing_ = true;
  return true;
}

// Outside the lock: a launcher may run the probe before it returns.
void SoundOutputChoice::launchProbe() {
  try {
    launch_([this] { probed(probe_()); });
  } catch (...) {
    // No thread to probe on: items keep autoaudiosink, and a later item tries again.
    std::lock_guard lock(mutex_);
    probing_ = false;
  }
}

void SoundOutputChoice::probed(std::optional<std::string> factory) {
  std::lock_guard lock(mutex_);
  probing_ = false;
  answer_ = factory ? Output{Kind::Device, std::move(*factory)} : Output{Kind::Silent, {}};
  answeredAt_ = clock_();
}

bool SoundOutputChoice::freshLocked() const { return answer_ && clock_() - answeredAt_ < maxAge_; }

}  // namespace zivora::platform
