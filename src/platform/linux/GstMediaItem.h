#pragma once

#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/dispatch/Queue.h"
#include "platform/linux/SoundOutputChoice.h"
#include "platform/media/ByteRangeSource.h"
#include "platform/media/MediaItem.h"
#include "platform/media/VideoFrame.h"

namespace zivora::platform {

class SoundDeviceOpen;

// Where playbin sends the sound.
enum class AudioOutput {
  Automatic,  // the machine's device, or nothing audible (see SoundOutputChoice)
  Discard,    // fakesink, synchronised to the clock (headless runs, tests)
};

struct GstPlaybackOptions {
  AudioOutput audio = AudioOutput::Automatic;
  // decodebin can swallow a demuxer's error that comes while it is still
  // starting the demuxer (a file cut inside its header), and the pipeline
  // then never prerolls. An item that is neither ready nor failed after
  // this long, and is not waiting for bytes of its loader, fails.
  dispatch::Duration prerollTimeout = std::chrono::seconds(10);
  // Where Automatic finds the machine's output; null: the process's
  // (SoundOutputChoice::shared()).
  std::shared_ptr<SoundOutputChoice> sound = nullptr;
};

// An item on a playbin pipeline: video to an appsink (I420 pictures turned
// into cairo's layout by libyuv, anything else converted to BGRA), audio to the
// chosen sink, a "customLoader://" asset read through an appsrc in
// random-access mode. The pipeline prerolls as soon as the item is made and
// the sound output is known.
// Bus messages and frames reach the main queue through weak references, so
// the item may go at any time; its destructor breaks a waiting read before
// it stops the pipeline and so never waits for a blocked streaming thread.
class GstMediaItem final : public media::MediaItem,
                           public std::enable_shared_from_this<GstMediaItem> {
 public:
  static std::shared_ptr<GstMediaItem> make(std::shared_ptr<media::MediaAsset> asset,
                                            dispatch::Queue& mainQueue,
                                            const GstPlaybackOptions& options);
  ~GstMediaItem() override;
  GstMediaItem(const GstMediaItem&) = delete;
  GstMediaItem& operator=(const GstMediaItem&) = delete;

  const std::shared_ptr<media::MediaAsset>& asset() const override { return asset_; }
  media::MediaItemStatus status() const override { return status_; }
  media::MediaTime duration() const override { return duration_; }
  std::string error() const override { return error_; }
  void seekTo(media::MediaTime time) override;
  void setObserver(media::MediaItemObserver observer) override { observer_ = std::move(observer); }

  // The player's controls.
  void setPlaying(bool playing);
  media::MediaTime position() const;
  void setMuted(bool muted);
  bool isMuted() const;
  // A sink that comes after the pictures stopped (a prerolled item) gets
  // the newest one.
  void setFrameSink(media::FrameSink* sink);

  struct Streaming;  // what the streaming threads share with the item

 private:
  GstMediaItem(std::shared_ptr<media::MediaAsset> asset, dispatch::Queue& mainQueue);
  void startWith(const SoundOutputChoice::Output& output);
  void openDeviceThenStart(const SoundOutputChoice::Output& output);
  void deviceOpened(const std::string& factory, GstElement* sink);
  bool start();
  void setAudioSink();
  GstElement* makeVideoSink();
  void attachBus();

  // Main queue, from the bus and the sinks.
  void asyncDone();
  void endOfStream();
  void failed(std::string message);
  void stalled();
  void deliverFrame();
  void becomeReady();
  void armPrerollWatchdog(dispatch::Duration timeout);
  void setStatus(media::MediaItemStatus status);

  const std::shared_ptr<media::MediaAsset> asset_;
  dispatch::Queue& mainQueue_;
  std::shared_ptr<Streaming> streaming_;
  GstElement* pipeline_ = nullptr;
  GstElement* videoSink_ = nullptr;              // the appsink, held to ask it the position
  GstElement* audioSink_ = nullptr;              // the machine's device, held to close it
  std::shared_ptr<SoundOutputChoice> choice_;    // where the device came from
  std::shared_ptr<SoundDeviceOpen> deviceOpen_;  // the device's open under way
  dispatch::TaskHandle prerollWatchdog_;

  media::MediaItemStatus status_ = media::MediaItemStatus::Unknown;
  media::MediaTime duration_ = media::MediaTime::invalid();
  media::MediaTime startTime_ = media::MediaTime::zero();
  mutable media::MediaTime lastPosition_ = media::MediaTime::zero();
  bool initialSeekStarted_ = false;
  bool endReported_ = false;
  bool failureReported_ = false;
  bool muted_ = false;  // kept for a pipeline that has yet to start
  std::string error_;
  media::MediaItemObserver observer_;
  media::FrameSink* frameSink_ = nullptr;
};

}  // namespace zivora::platform
