#include "support/StuckAudioSink.h"

#include <gst/gst.h>

#include <condition_variable>
#include <mutex>

namespace {

struct Stuck {
  std::mutex mutex;
  std::condition_variable released;
  bool open = false;  // whether opens pass (fail at once)
  int attempts = 0;
  int opensFirst = 0;  // opens that succeed before they block
};

constexpr guint kRank = GST_RANK_PRIMARY + 1000;

Stuck& stuck() {
  static Stuck state;
  return state;
}

}  // namespace

extern "C" {

struct ZivoraStuckSink {
  GstElement parent;
};
struct ZivoraStuckSinkClass {
  GstElementClass parentClass;
};

// NOLINTNEXTLINE: GObject's type boilerplate
G_DEFINE_TYPE(ZivoraStuckSink, zivora_stuck_sink, GST_TYPE_ELEMENT)

static GstStateChangeReturn zivoraStuckSinkChangeState(GstElement* element,
                                                       GstStateChange transition) {
  if (transition == GST_STATE_CHANGE_NULL_TO_READY) {
    Stuck& state = stuck();
    std::unique_lock lock(state.mutex);
    if (state.attempts++ >= state.opensFirst) {
      state.released.wait(lock, [&] { return state.open; });
      return GST_STATE_CHANGE_FAILURE;
    }
  }
  return GST_ELEMENT_CLASS(zivora_stuck_sink_parent_class)->change_state(element, transition);
}

static void zivora_stuck_sink_class_init(ZivoraStuckSinkClass* klass) {
  auto* elementClass = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(elementClass, "Stuck audio sink", "Sink/Audio",
                                        "Blocks as it opens", "Zivora tests");
  static GstStaticPadTemplate sink =
      GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("audio/x-raw"));
  gst_element_class_add_static_pad_template(elementClass, &sink);
  elementClass->change_state = zivoraStuckSinkChangeState;
}

static void zivora_stuck_sink_init(ZivoraStuckSink*) {}

}  // extern "C"

namespace zivora::test {

StuckAudioSink::StuckAudioSink(int opensFirst) {
  if (!gst_is_initialized()) gst_init(nullptr, nullptr);
  {
    std::lock_guard lock(stuck().mutex);
    stuck().open = false;
    stuck().attempts = 0;
    stuck().opensFirst = opensFirst;
  }
  gst_element_register(nullptr, kName, kRank, zivora_stuck_sink_get_type());
  // Registering again (a later test) leaves the rank its last owner set.
  if (GstElementFactory* factory = gst_element_factory_find(kName)) {
    gst_plugin_feature_set_rank(GST_PLUGIN_FEATURE(factory), kRank);
    gst_object_unref(factory);
  }
}

StuckAudioSink::~StuckAudioSink() {
  release();
  if (GstElementFactory* factory = gst_element_factory_find(kName)) {
    gst_plugin_feature_set_rank(GST_PLUGIN_FEATURE(factory), GST_RANK_NONE);
    gst_object_unref(factory);
  }
}

int StuckAudioSink::attempts() const {
  std::lock_guard lock(stuck().mutex);
  return stuck().attempts;
}

void StuckAudioSink::release() {
  std::lock_guard lock(stuck().mutex);
  stuck().open = true;
  stuck().released.notify_all();
}

}  // namespace zivora::test
