#include "platform/linux/GstMediaItem.h"

#include <fmt/format.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <mutex>
#include <optional>
#include <vector>

#include "platform/dispatch/WeakTask.h"
#include "platform/linux/GstreamerInit.h"
#include "platform/linux/SoundDeviceOpen.h"
#include "util/Guard.h"

namespace zivora::platform {

using media::MediaItemStatus;
using media::MediaTime;

// Shared by the item and the GStreamer callbacks, which run on streaming
// threads and reach the item only through the main queue.
struct GstMediaItem::Streaming {
  dispatch::Queue* mainQueue = nullptr;
  std::weak_ptr<GstMediaItem> item;
  GstElement* pipeline = nullptr;
  std::shared_ptr<media::ByteRangeSource> source;
  std::atomic<std::uint64_t> readOffset{0};
  // The presentation time of the latest picture, or -1.
  std::atomic<std::int64_t> lastFrameTime{-1};
  // Whether the sink takes 4:2:0 pictures as the decoder made them.
  std::atomic<bool> yuvWanted{false};

  ~Streaming() {
    if (unseenSample) gst_sample_unref(unseenSample);
  }

  std::mutex frameMutex;
  std::optional<media::VideoFrame> latestFrame;
  bool frameDeliveryPending = false;
  // Whether a frame sink takes the pictures. Without one, the newest
  // picture is only kept as it came from the decoder: converting it costs
  // a few milliseconds (more on fresh memory), and a picture made in the
  // preroll would hold up the item's readiness for a screen that may never
  // show it.
  bool watched = false;
  GstSample* unseenSample = nullptr;

  template <class Member, class... Args>
  void post(const char* method, Member member, Args... args) {
    dispatch::asyncWeak(*mainQueue, item, {"GstMediaItem", method},
                        [member, args...](GstMediaItem& target) { (target.*member)(args...); });
  }

  // Takes the sample when nobody watches the pictures.
  bool keepUnlessWatched(GstSample* sample) {
    std::lock_guard lock(frameMutex);
    if (watched) return false;
    if (unseenSample) gst_sample_unref(unseenSample);
    unseenSample = sample;
    return true;
  }

  // The kept picture, if any, when a sink starts to watch (the caller owns it).
  GstSample* setWatched(bool watching) {
    std::lock_guard lock(frameMutex);
    watched = watching;
    return watching ? std::exchange(unseenSample, nullptr) : nullptr;
  }

  void offerFrame(media::VideoFrame frame) {
    std::lock_guard lock(frameMutex);
    // A picture the main queue had no time for: its buffer serves again.
    if (latestFrame) keep(std::move(latestFrame->pixels));
    latestFrame = std::move(frame);
    if (frameDeliveryPending) return;
    frameDeliveryPending = true;
    post("deliverFrame", &GstMediaItem::deliverFrame);
  }

  // What the bus and the byte source report, each handed to the main queue.
  void asyncDone() { post("asyncDone", &GstMediaItem::asyncDone); }
  void endOfStream() { post("endOfStream", &GstMediaItem::endOfStream); }
  void failed(std::string message) { post("failed", &GstMediaItem::failed, std::move(message)); }
  void stalled() { post("stalled", &GstMediaItem::stalled); }

  std::optional<media::VideoFrame> takeFrame() {
    std::lock_guard lock(frameMutex);
    frameDeliveryPending = false;
    return std::exchange(latestFrame, std::nullopt);
  }

  // Pictures of one video are all the same size: a buffer handed back after
  // a frame was drawn takes the next picture, so no frame pays for a fresh
  // allocation (page faults and zeroing of a few MiB).
  std::vector<std::uint8_t> takeSpareBuffer() {
    std::lock_guard lock(frameMutex);
    return std::exchange(spareBuffer, {});
  }
  void giveBackBuffer(std::vector<std::uint8_t> buffer) {
    std::lock_guard lock(frameMutex);
    keep(std::move(buffer));
  }

 private:
  void keep(std::vector<std::uint8_t> buffer) {
    if (buffer.capacity() > spareBuffer.capacity()) spareBuffer = std::move(buffer);
  }
  std::vector<std::uint8_t> spareBuffer;
};

namespace {

using StreamingRef = std::shared_ptr<GstMediaItem::Streaming>;

// GStreamer keeps a reference of its own on what its callbacks use.
gpointer holdStreaming(const StreamingRef& streaming) { return new StreamingRef(streaming); }
void releaseStreaming(gpointer data) { delete static_cast<StreamingRef*>(data); }
void releaseStreamingClosure(gpointer data, GClosure*) { releaseStreaming(data); }
GstMediaItem::Streaming& streamingOf(gpointer data) { return **static_cast<StreamingRef*>(data); }

std::string errorText(GstMessage* message) {
  GError* error = nullptr;
  gchar* debug = nullptr;
  gst_message_parse_error(message, &error, &debug);
  std::string text = error ? error->message : "unknown error";
  g_clear_error(&error);
  g_free(debug);
  return text;
}

GstBusSyncReply onBusMessage(GstBus*, GstMessage* message, gpointer data) {
  auto& streaming = streamingOf(data);
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ASYNC_DONE:
      if (GST_MESSAGE_SRC(message) == GST_OBJECT(streaming.pipeline)) {
        streaming.asyncDone();
      }
      break;
    case GST_MESSAGE_EOS:
      streaming.endOfStream();
      break;
    case GST_MESSAGE_ERROR:
      streaming.failed(errorText(message));
      break;
    default:
      // Warnings, state changes, buffering: nothing the item reports.
      break;
  }
  return GST_BUS_DROP;
}

// A mapped I420 picture as the seam describes it; `owner` keeps the planes.
media::YuvPicture yuvPictureOf(const GstVideoFrame& video, std::shared_ptr<const void> owner) {
  const GstVideoInfo& info = video.info;
  const auto plane = [&](int index) {
    return media::YuvPicture::Plane{
        static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&video, index)),
        GST_VIDEO_FRAME_PLANE_STRIDE(&video, index)};
  };
  media::YuvMatrix matrix = media::YuvMatrix::Bt601;
  if (info.colorimetry.matrix == GST_VIDEO_COLOR_MATRIX_BT709) matrix = media::YuvMatrix::Bt709;
  if (info.colorimetry.matrix == GST_VIDEO_COLOR_MATRIX_BT2020) matrix = media::YuvMatrix::Bt2020;
  return media::YuvPicture(GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info), plane(0),
                           plane(1), plane(2), matrix,
                           info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255, std::move(owner));
}

// Decoders hand over I420, which libyuv turns into the screens' pixel
// layout in a fraction of what the pipeline's generic converter takes; any
// other format arrives converted to BGRA already.
void copyPixels(const GstVideoFrame& video, media::VideoFrame& frame) {
  const GstVideoInfo& info = video.info;
  if (GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_I420) {
    frame.stride = frame.width * 4;
    frame.pixels.resize(static_cast<std::size_t>(frame.stride) *
                        static_cast<std::size_t>(frame.height));
    yuvPictureOf(video, nullptr).convert(frame.pixels.data(), frame.stride);
    return;
  }
  frame.stride = GST_VIDEO_FRAME_PLANE_STRIDE(&video, 0);
  const auto* pixels = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&video, 0));
  frame.pixels.assign(pixels, pixels + static_cast<std::size_t>(frame.stride) *
                                           static_cast<std::size_t>(frame.height));
}

std::optional<media::VideoFrame> frameOf(GstSample* sample, std::vector<std::uint8_t> reuse) {
  GstVideoInfo info;
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  if (!buffer || !gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) return std::nullopt;
  GstVideoFrame video;
  if (!gst_video_frame_map(&video, &info, buffer, GST_MAP_READ)) return std::nullopt;
  media::VideoFrame frame;
  frame.pixels = std::move(reuse);
  frame.width = GST_VIDEO_INFO_WIDTH(&info);
  frame.height = GST_VIDEO_INFO_HEIGHT(&info);
  if (GST_BUFFER_PTS_IS_VALID(buffer)) {
    frame.presentationTime =
        MediaTime::fromNanoseconds(static_cast<std::int64_t>(GST_BUFFER_PTS(buffer)));
  }
  copyPixels(video, frame);
  gst_video_frame_unmap(&video);
  return frame;
}

// A decoded picture kept mapped, as it came, for as long as a frame shows it.
struct MappedSample {
  explicit MappedSample(GstSample* sample) : sample(sample) {}
  ~MappedSample() {
    if (mapped) gst_video_frame_unmap(&video);
    gst_sample_unref(sample);
  }
  MappedSample(const MappedSample&) = delete;
  MappedSample& operator=(const MappedSample&) = delete;
  GstSample* sample;
  GstVideoFrame video{};
  bool mapped = false;
};

// The sample's I420 picture, unconverted; takes the sample. Empty (and the
// sample still the caller's) for any other format.
std::optional<media::VideoFrame> yuvFrameOf(GstSample* sample) {
  GstVideoInfo info;
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  if (!buffer || !gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) ||
      GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_I420) {
    return std::nullopt;
  }
  auto mapping = std::make_shared<MappedSample>(sample);
  mapping->mapped = gst_video_frame_map(&mapping->video, &info, buffer, GST_MAP_READ);
  if (!mapping->mapped) return media::VideoFrame{};
  media::VideoFrame frame;
  frame.width = GST_VIDEO_INFO_WIDTH(&info);
  frame.height = GST_VIDEO_INFO_HEIGHT(&info);
  if (GST_BUFFER_PTS_IS_VALID(buffer)) {
    frame.presentationTime =
        MediaTime::fromNanoseconds(static_cast<std::int64_t>(GST_BUFFER_PTS(buffer)));
  }
  const GstVideoFrame& video = mapping->video;
  frame.yuv = std::make_shared<media::YuvPicture>(yuvPictureOf(video, std::move(mapping)));
  return frame;
}

// Hands a sample's picture to the main queue, converted unless the sink
// converts it itself; takes the sample.
void offerSample(GstMediaItem::Streaming& streaming, GstSample* sample) {
  if (streaming.yuvWanted.load()) {
    if (auto frame = yuvFrameOf(sample)) {
      if (frame->yuv) streaming.offerFrame(std::move(*frame));
      return;
    }
  }
  if (auto frame = frameOf(sample, streaming.takeSpareBuffer())) {
    streaming.offerFrame(std::move(*frame));
  }
  gst_sample_unref(sample);
}

GstFlowReturn takeSample(GstSample* sample, gpointer data) {
  if (!sample) return GST_FLOW_OK;
  auto& streaming = streamingOf(data);
  // How far the pictures went counts whether or not anyone looks at them.
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  if (buffer && GST_BUFFER_PTS_IS_VALID(buffer)) {
    streaming.lastFrameTime.store(static_cast<std::int64_t>(GST_BUFFER_PTS(buffer)));
  }
  if (!streaming.keepUnlessWatched(sample)) offerSample(streaming, sample);
  return GST_FLOW_OK;
}

GstFlowReturn onPreroll(GstAppSink* sink, gpointer data) {
  return takeSample(gst_app_sink_pull_preroll(sink), data);
}

GstFlowReturn onSample(GstAppSink* sink, gpointer data) {
  return takeSample(gst_app_sink_pull_sample(sink), data);
}

gboolean onSeekData(GstAppSrc*, guint64 offset, gpointer data) {
  streamingOf(data).readOffset.store(offset);
  return TRUE;
}

void freeBytes(gpointer bytes) { delete static_cast<std::vector<std::uint8_t>*>(bytes); }

// A streaming thread asks for `length` bytes at the current offset; this
// blocks until the resource-loader delegate has answered them.
void onNeedData(GstAppSrc* appsrc, guint length, gpointer data) {
  auto& streaming = streamingOf(data);
  const auto offset = streaming.readOffset.load();
  bool interrupted = false;
  auto answer = streaming.source->read(static_cast<std::int64_t>(offset), length, &interrupted);
  // The source is flushing for a seek: appsrc answers the pull itself.
  if (interrupted) return;
  if (answer.outcome == media::LoadingRequest::Outcome::Failed) {
    GST_ELEMENT_ERROR(appsrc, RESOURCE, READ, ("The read was refused or cancelled."), (nullptr));
    gst_app_src_end_of_stream(appsrc);
    return;
  }
  if (answer.bytes.empty()) {
    gst_app_src_end_of_stream(appsrc);
    return;
  }
  auto* bytes = new std::vector<std::uint8_t>(std::move(answer.bytes));
  GstBuffer* buffer = gst_buffer_new_wrapped_full(
      GST_MEMORY_FLAG_READONLY, bytes->data(), bytes->size(), 0, bytes->size(), bytes, freeBytes);
  GST_BUFFER_OFFSET(buffer) = offset;
  streaming.readOffset.store(offset + gst_buffer_get_size(buffer));
  gst_app_src_push_buffer(appsrc, buffer);
}

// A flushing seek (made on the main queue) waits for the demuxer's
// streaming thread, which may be waiting in a read for the main queue to
// answer it: the flush reaching the source breaks that read.
GstPadProbeReturn onFlush(GstPad*, GstPadProbeInfo* info, gpointer data) {
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  auto& source = *streamingOf(data).source;
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_START) source.setFlushing(true);
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) source.setFlushing(false);
  return GST_PAD_PROBE_OK;
}

void onSourceSetup(GstElement*, GstElement* source, gpointer data) {
  if (!GST_IS_APP_SRC(source)) return;
  if (GstPad* pad = gst_element_get_static_pad(source, "src")) {
    gst_pad_add_probe(
        pad, GstPadProbeType(GST_PAD_PROBE_TYPE_EVENT_UPSTREAM | GST_PAD_PROBE_TYPE_EVENT_FLUSH),
        onFlush, holdStreaming(*static_cast<StreamingRef*>(data)), releaseStreaming);
    gst_object_unref(pad);
  }
  g_object_set(source, "stream-type", GST_APP_STREAM_TYPE_RANDOM_ACCESS, "format", GST_FORMAT_BYTES,
               nullptr);
  GstAppSrcCallbacks callbacks{};
  callbacks.need_data = onNeedData;
  callbacks.seek_data = onSeekData;
  gst_app_src_set_callbacks(GST_APP_SRC(source), &callbacks,
                            holdStreaming(*static_cast<StreamingRef*>(data)), releaseStreaming);
}

// playbin's defaults that an ad never uses: subtitles, and the deinterlacer
// and colour-balance elements it would otherwise build into the video chain
// (building and negotiating them is a good part of a preroll).
constexpr guint kPlayFlagText = 1u << 2;
constexpr guint kPlayFlagDeinterlace = 1u << 9;
constexpr guint kPlayFlagSoftColorbalance = 1u << 10;
constexpr guint kUnusedPlayFlags = kPlayFlagText | kPlayFlagDeinterlace | kPlayFlagSoftColorbalance;
// How far before its duration a stream may end and still count as played
// to the end (audio and video tracks rarely end on the same sample).
constexpr MediaTime kEndTolerance = MediaTime::fromNanoseconds(500'000'000);

}  // namespace

std::shared_ptr<GstMediaItem> GstMediaItem::make(std::shared_ptr<media::MediaAsset> asset,
                                                 dispatch::Queue& mainQueue,
                                                 const GstPlaybackOptions& options) {
  std::shared_ptr<GstMediaItem> item(new GstMediaItem(std::move(asset), mainQueue));
  item->streaming_->item = item;
  item->armPrerollWatchdog(options.prerollTimeout);
  if (options.audio == AudioOutput::Discard) {
    item->startWith(SoundOutputChoice::Output{});
    return item;
  }
  // The pipeline starts once the sound output is known: at once when the
  // process's choice has an answer, else when its probe ends (the preroll
  // watchdog runs meanwhile).
  item->choice_ = options.sound ? options.sound : SoundOutputChoice::shared();
  if (!ensureGstreamer()) {  // on this thread, before any probe starts
    item->startWith(SoundOutputChoice::Output{});
    return item;
  }
  if (auto output = item->choice_->known()) {
    item->startWith(*output);
  } else {
    // The answer may come after the SDK shut down: only an item still
    // alive vouches for its main queue.
    item->choice_->whenKnown(
        [weak = std::weak_ptr<GstMediaItem>(item)](SoundOutputChoice::Output output) {
          if (auto waiting = weak.lock()) {
            dispatch::asyncWeak(waiting->mainQueue_, weak, {"GstMediaItem", "soundOutputKnown"},
                                [output](GstMediaItem& self) { self.startWith(output); });
          }
        });
  }
  return item;
}

void GstMediaItem::startWith(const SoundOutputChoice::Output& output) {
  if (output.kind == SoundOutputChoice::Kind::Device && choice_) return openDeviceThenStart(output);
  if (!start()) streaming_->failed("The player could not start.");
}

// The device opens on a thread of its own; the pipeline starts when it has
// opened, or silently when it refused or took longer than the choice's own
// tries may (the choice then drops it and looks again).
void GstMediaItem::openDeviceThenStart(const SoundOutputChoice::Output& output) {
  // The answer runs on the main queue, never after the destructor's cancel().
  deviceOpen_ = SoundDeviceOpen::start(
      output.factory, mainQueue_, choice_->openLimit(),
      [this, factory = output.factory](GstElement* sink) { deviceOpened(factory, sink); });
}

void GstMediaItem::deviceOpened(const std::string& factory, GstElement* sink) {
  deviceOpen_.reset();
  if (!sink) choice_->deviceFailed(factory);
  audioSink_ = sink;
  if (!start()) streaming_->failed("The player could not start.");
}

GstMediaItem::GstMediaItem(std::shared_ptr<media::MediaAsset> asset, dispatch::Queue& mainQueue)
    : asset_(std::move(asset)), mainQueue_(mainQueue), streaming_(std::make_shared<Streaming>()) {
  streaming_->mainQueue = &mainQueue_;
}

GstMediaItem::~GstMediaItem() {
  prerollWatchdog_.cancel();
  if (deviceOpen_) deviceOpen_->cancel();
  // A streaming thread blocked in a read would hold up the state change.
  if (streaming_->source) streaming_->source->shutdown();
  if (pipeline_) {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    GstBus* bus = gst_element_get_bus(pipeline_);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(pipeline_);
  }
  if (videoSink_) gst_object_unref(videoSink_);
  // Opened but never taken into the pipeline (an item that went before
  // its streams were known): closed here.
  if (audioSink_) {
    gst_element_set_state(audioSink_, GST_STATE_NULL);
    gst_object_unref(audioSink_);
  }
}

bool GstMediaItem::start() {
  if (!ensureGstreamer()) return false;
  pipeline_ = gst_element_factory_make("playbin", nullptr);
  GstElement* videoSink = makeVideoSink();
  if (!pipeline_ || !videoSink) {
    if (videoSink) gst_object_unref(gst_object_ref_sink(videoSink));
    return false;
  }
  streaming_->pipeline = pipeline_;
  guint flags = 0;
  g_object_get(pipeline_, "flags", &flags, nullptr);
  videoSink_ = GST_ELEMENT(gst_object_ref(videoSink));
  g_object_set(pipeline_, "video-sink", videoSink, "flags", flags & ~kUnusedPlayFlags, "mute",
               muted_ ? TRUE : FALSE, nullptr);
  setAudioSink();
  attachBus();

  std::string uri;
  if (asset_->isCustomLoader()) {
    std::weak_ptr<Streaming> weak = streaming_;
    streaming_->source = std::make_shared<media::ByteRangeSource>(asset_, mainQueue_, [weak] {
      if (auto streaming = weak.lock()) streaming->stalled();
    });
    g_signal_connect_data(pipeline_, "source-setup", G_CALLBACK(onSourceSetup),
                          holdStreaming(streaming_), releaseStreamingClosure, GConnectFlags(0));
    uri = "appsrc://";
  } else {
    GError* error = nullptr;
    gchar* fileUri = gst_filename_to_uri(asset_->filePath().c_str(), &error);
    g_clear_error(&error);
    if (!fileUri) return false;
    uri = fileUri;
    g_free(fileUri);
  }
  g_object_set(pipeline_, "uri", uri.c_str(), nullptr);
  return gst_element_set_state(pipeline_, GST_STATE_PAUSED) != GST_STATE_CHANGE_FAILURE;
}

void GstMediaItem::setAudioSink() {
  if (audioSink_) {
    g_object_set(pipeline_, "audio-sink", audioSink_, nullptr);
    return;
  }
  if (GstElement* sink = gst_element_factory_make("fakesink", nullptr)) {
    g_object_set(sink, "sync", TRUE, nullptr);
    g_object_set(pipeline_, "audio-sink", sink, nullptr);
  }
}

GstElement* GstMediaItem::makeVideoSink() {
  GstElement* sink = gst_element_factory_make("appsink", nullptr);
  if (!sink) return nullptr;
  // I420 first: what H.264 decoders give, taken as it comes.
  GstCaps* caps = gst_caps_from_string("video/x-raw, format=(string){ I420, BGRA }");
  g_object_set(sink, "caps", caps, "sync", TRUE, "max-buffers", 2u, nullptr);
  gst_caps_unref(caps);
  GstAppSinkCallbacks callbacks{};
  callbacks.new_preroll = onPreroll;
  callbacks.new_sample = onSample;
  gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, holdStreaming(streaming_),
                             releaseStreaming);
  return sink;
}

// Messages are taken as they are posted, on the posting thread, and handed
// to the main queue: no GLib main loop is needed.
void GstMediaItem::attachBus() {
  GstBus* bus = gst_element_get_bus(pipeline_);
  gst_bus_set_sync_handler(bus, onBusMessage, holdStreaming(streaming_), releaseStreaming);
  gst_object_unref(bus);
}

void GstMediaItem::seekTo(MediaTime time) {
  if (status_ == MediaItemStatus::Failed) return;
  // Also before the pipeline starts (the sound output not yet known).
  if (status_ == MediaItemStatus::Unknown && !initialSeekStarted_) {
    startTime_ = time;  // the item becomes ready there
    return;
  }
  if (!pipeline_) return;
  endReported_ = false;
  const auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
  gst_element_seek_simple(pipeline_, GST_FORMAT_TIME, flags,
                          std::max<std::int64_t>(time.nanoseconds(), 0));
}

void GstMediaItem::asyncDone() {
  // Only the first preroll (and the initial seek) decide the status.
  if (status_ != MediaItemStatus::Unknown) return;
  if (!initialSeekStarted_ && startTime_ > MediaTime::zero()) {
    initialSeekStarted_ = true;
    seekTo(startTime_);
    return;
  }
  becomeReady();
}

void GstMediaItem::armPrerollWatchdog(dispatch::Duration timeout) {
  prerollWatchdog_ = dispatch::afterWeak(
      mainQueue_, timeout, weak_from_this(), {"GstMediaItem", "prerollWatchdog"},
      [timeout](GstMediaItem& item) {
        if (item.status_ != MediaItemStatus::Unknown) return;
        const auto& source = item.streaming_->source;
        if (source && source->isWaitingForBytes()) {
          item.armPrerollWatchdog(timeout);  // the loader, not the pipeline, holds it up
        } else {
          item.failed("The media did not become ready in time.");
        }
      });
}

void GstMediaItem::becomeReady() {
  gint64 duration = -1;
  if (gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) && duration >= 0) {
    duration_ = MediaTime::fromNanoseconds(duration);
  }
  lastPosition_ = startTime_;
  setStatus(MediaItemStatus::ReadyToPlay);
}

void GstMediaItem::setStatus(MediaItemStatus status) {
  status_ = status;
  if (auto notify = observer_.statusChanged) notify(status);
}

// qtdemux ends a file cut short in its media data with a plain end of
// stream; a player whose last picture lies well before the announced
// duration has not played to the end. (The pipeline's position is no help:
// at the end it reports the duration.)
void GstMediaItem::endOfStream() {
  if (status_ != MediaItemStatus::ReadyToPlay || endReported_) return;
  endReported_ = true;
  const auto reached = MediaTime::fromNanoseconds(streaming_->lastFrameTime.load());
  if (duration_.isValid() && streaming_->lastFrameTime.load() >= 0 &&
      reached + kEndTolerance < duration_) {
    failed(fmt::format("The stream ended at {:.3f} s of {:.3f} s.", reached.seconds(),
                       duration_.seconds()));
    return;
  }
  if (auto notify = observer_.playedToEnd) notify();
}

void GstMediaItem::failed(std::string message) {
  if (status_ == MediaItemStatus::Unknown) {
    error_ = std::move(message);
    setStatus(MediaItemStatus::Failed);
  } else if (status_ == MediaItemStatus::ReadyToPlay && !failureReported_) {
    failureReported_ = true;
    error_ = std::move(message);
    if (auto notify = observer_.failedToPlayToEnd) notify();
  }
}

void GstMediaItem::stalled() {
  if (status_ != MediaItemStatus::ReadyToPlay) return;
  if (auto notify = observer_.playbackStalled) notify();
}

void GstMediaItem::setFrameSink(media::FrameSink* sink) {
  frameSink_ = sink;
  streaming_->yuvWanted.store(sink && sink->takesYuvPictures());
  if (GstSample* unseen = streaming_->setWatched(sink != nullptr)) {
    offerSample(*streaming_, unseen);
  }
}

void GstMediaItem::deliverFrame() {
  auto frame = streaming_->takeFrame();
  if (!frame) return;
  // A picture made for a sink that has since been replaced by one that
  // does not convert pictures itself.
  if (frame->yuv && frameSink_ && !frameSink_->takesYuvPictures()) {
    frame->stride = frame->width * 4;
    frame->pixels.resize(static_cast<std::size_t>(frame->stride) *
                         static_cast<std::size_t>(frame->height));
    frame->yuv->convert(frame->pixels.data(), frame->stride);
    frame->yuv.reset();
  }
  // The sink may keep these pixels and hand back its previous buffer.
  if (frameSink_) frameSink_->takeFrame(*frame);
  streaming_->giveBackBuffer(std::move(frame->pixels));
}

void GstMediaItem::setPlaying(bool playing) {
  if (!pipeline_ || status_ == MediaItemStatus::Failed) return;
  gst_element_set_state(pipeline_, playing ? GST_STATE_PLAYING : GST_STATE_PAUSED);
  if (streaming_->source) streaming_->source->setPlaying(playing);
}

MediaTime GstMediaItem::position() const {
  gint64 position = -1;
  // The picture's sink answers for the pipeline: the pipeline's own answer
  // walks every sink of its nested bins, which the countdown asks for 20
  // times a second.
  const auto query = [&](GstElement* element) {
    return element && gst_element_query_position(element, GST_FORMAT_TIME, &position);
  };
  if (pipeline_ && status_ == MediaItemStatus::ReadyToPlay &&
      (query(videoSink_) || query(pipeline_)) && position >= 0) {
    lastPosition_ = MediaTime::fromNanoseconds(position);
  }
  return lastPosition_;
}

void GstMediaItem::setMuted(bool muted) {
  muted_ = muted;
  if (pipeline_) g_object_set(pipeline_, "mute", muted ? TRUE : FALSE, nullptr);
}

bool GstMediaItem::isMuted() const {
  gboolean muted = muted_ ? TRUE : FALSE;
  if (pipeline_) g_object_get(pipeline_, "mute", &muted, nullptr);
  return muted;
}

}  // namespace zivora::platform
