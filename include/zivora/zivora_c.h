/* The Zivora SDK's C interface, for hosts that bind native libraries
 * through a C ABI (game engines' native plugins, Python's ctypes, Rust, C#).
 *
 * Every function may be called from any thread, before initialisation and
 * with NULL arguments: a NULL or invalid argument is reported with a log
 * line on standard error and the call does nothing (or returns 0). Strings
 * going in and out are UTF-8 and NUL-terminated; the SDK copies what it
 * keeps. No C++ exception ever crosses this interface.
 *
 * Structs carry their own size in `struct_size` so that later versions can
 * add members: fill them with the matching *_init() function first. */
#ifndef ZIVORA_C_H
#define ZIVORA_C_H

#include <stddef.h>
#include <stdint.h>

#include "zivora/Export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Error codes of video_did_fail_to_load and failed_request_motivated_rewards;
 * any other value is an error number sent by the ad server. */
#define ZIVORA_ERROR_NO_SPACE 2
#define ZIVORA_ERROR_INITIALIZATION_FAILED 3
#define ZIVORA_ERROR_BAD_REWARD_RESPONSE 4
#define ZIVORA_ERROR_DISPLAY_UNAVAILABLE 5

typedef enum zivora_main_queue_mode {
  /* The SDK runs its main queue on a thread of its own. */
  ZIVORA_MAIN_QUEUE_OWN_THREAD = 0,
  /* The host calls zivora_pump() once a frame, also while no ad shows. */
  ZIVORA_MAIN_QUEUE_HOST_PUMPED = 1
} zivora_main_queue_mode;

/* How much a log line matters (see ZivoraLogLevel in zivora/HostOptions.h). */
typedef enum zivora_log_level {
  ZIVORA_LOG_SYSTEM = 0,
  ZIVORA_LOG_WARNING = 1,
  ZIVORA_LOG_DEBUG = 2
} zivora_log_level;

/* Settings given once, at initialisation. NULL strings and zeros mean "the
 * default" (see zivora/HostOptions.h for each default). */
typedef struct zivora_options {
  size_t struct_size;
  const char* data_root;
  const char* application_name;
  const char* application_version;
  const char* ad_endpoint;
  const char* analytics_endpoint;
  /* A PEM bundle of the authorities to trust instead of the system's. */
  const char* ca_file;
  int limit_ad_tracking;
  const char* receipt_file;
  double safe_area_top;
  double safe_area_left;
  double safe_area_bottom;
  double safe_area_right;
  zivora_main_queue_mode main_queue_mode;
  int screen_width;
  int screen_height;
  /* With ZIVORA_MAIN_QUEUE_HOST_PUMPED: the host's SDL_Window*, into which
   * ad screens are drawn; see zivora_handle_event(). NULL: the SDK opens a
   * window of its own. */
  void* host_window;
  /* The graphics processor's name, reported with the device facts. */
  const char* gpu_type;
  /* Passed back to `log` and `open_url`. */
  void* host_user_data;
  /* Receives every log line instead of standard error. Called from the
   * SDK's threads, several at once: thread-safe, quick, no calls into the
   * SDK. `line` is valid during the call only. NULL: standard error. */
  void (*log)(void* host_user_data, zivora_log_level level, const char* line);
  /* Opens an address the ad screens hand on (absolute http or https only)
   * instead of xdg-open, e.g. in a store's overlay browser. Runs on the
   * SDK's main queue and returns at once: nonzero when it was opened.
   * NULL: xdg-open. */
  int (*open_url)(void* host_user_data, const char* url);
} zivora_options;

/* One granted reward, valid for the duration of the callback. */
typedef struct zivora_reward {
  const char* reward_id;
  const char* app_name;
  int32_t amount;
} zivora_reward;

/* What the host hears. Every member is optional (NULL: not implemented).
 * `user_data` is passed back to every callback. Callbacks run on the SDK's
 * threads; strings are valid only during the call. */
typedef struct zivora_callbacks {
  size_t struct_size;
  void* user_data;
  void (*video_did_cache)(void* user_data, const char* placement);
  void (*video_did_fail_to_load)(void* user_data, const char* placement, uint64_t error);
  void (*video_window_will_display)(void* user_data, const char* placement);
  void (*video_window_did_display)(void* user_data, const char* placement);
  void (*video_did_dismiss)(void* user_data, const char* placement);
  void (*video_window_will_close)(void* user_data, const char* placement);
  void (*video_window_did_close)(void* user_data, const char* placement);
  void (*video_post_view_did_click)(void* user_data, const char* placement);
  void (*video_receive_reward)(void* user_data, const char* placement);
  /* Return non-zero to take the rewards (the server then clears them). */
  int (*receive_motivated_rewards)(void* user_data, const zivora_reward* rewards, size_t count);
  void (*failed_request_motivated_rewards)(void* user_data, uint64_t error);
  /* The reward of video_receive_reward with its id, the same on every
   * delivery of that reward: one that a crash kept from being acknowledged
   * (by the callback's return) is delivered again at the next start. When
   * set, it is called instead of video_receive_reward. */
  void (*video_receive_reward_with_id)(void* user_data, const char* placement,
                                       const char* reward_id);
} zivora_callbacks;

/* Zero the whole structure of this library's version and set struct_size to
 * it. Call them only on a structure declared from this header: a binding
 * that declares a shorter structure (an older header, a ctypes mirror of
 * part of it) zeroes it itself and sets struct_size to its own size; the
 * SDK reads no further than struct_size. */
ZIVORA_API void zivora_options_init(zivora_options* options);
ZIVORA_API void zivora_callbacks_init(zivora_callbacks* callbacks);

/* Starts the SDK; `options` may be NULL. A second call logs and does nothing. */
ZIVORA_API void zivora_initialize(const char* app_id, const zivora_options* options);
/* NULL clears the user id. */
ZIVORA_API void zivora_set_app_user_id(const char* user_id);
/* Replaces the callbacks (copied); NULL removes them. Call after zivora_initialize. */
ZIVORA_API void zivora_set_callbacks(const zivora_callbacks* callbacks);

ZIVORA_API void zivora_cache_video(const char* placement);
ZIVORA_API int zivora_is_ready_video(const char* placement);
ZIVORA_API void zivora_show_video(const char* placement);

ZIVORA_API void zivora_purchase_event(double amount, const char* currency,
                                      const char* transaction_id);
/* For stores that hand the host a receipt or order token. */
ZIVORA_API void zivora_purchase_event_with_receipt(double amount, const char* currency,
                                                   const char* transaction_id, const char* receipt);

ZIVORA_API void zivora_log_enable(int enable);
ZIVORA_API void zivora_request_motivated_rewards(void);
ZIVORA_API void zivora_remove_motivated_rewards(const char* const* reward_ids, size_t count);

/* Host-pumped main queue: runs the SDK's due main-queue work; returns the
 * number of tasks run. */
ZIVORA_API size_t zivora_pump(void);
/* With a host window: offers one of the host's events (an SDL_Event*) to the
 * ad screens. Nonzero when an ad screen took it: the host then ignores it. */
ZIVORA_API int zivora_handle_event(const void* sdl_event);
/* Nonzero while an ad screen is on the display: a host drawing into its own
 * window skips its drawing meanwhile. */
ZIVORA_API int zivora_is_presenting(void);

/* What a host's button can ask of the ad screen shown. */
typedef enum zivora_screen_action {
  ZIVORA_SCREEN_ACTION_SKIP = 0,           /* once skipping is allowed */
  ZIVORA_SCREEN_ACTION_SOUND = 1,          /* sound on or off */
  ZIVORA_SCREEN_ACTION_CALL_TO_ACTION = 2, /* the post-video screen's call to action */
  ZIVORA_SCREEN_ACTION_CLOSE = 3           /* close the post-video screen */
} zivora_screen_action;
/* Acts on the ad screen shown as the matching key or controller button would,
 * for hosts whose input does not come through SDL. Runs on the SDK's main
 * queue; nonzero when an ad screen was shown to take it. */
ZIVORA_API int zivora_perform_screen_action(zivora_screen_action action);

/* A picture of the ad screens: `height` rows of `width` pixels, `stride`
 * bytes apart, each a native-endian 32-bit 0xAARRGGBB value with
 * premultiplied alpha (cairo's CAIRO_FORMAT_ARGB32). */
typedef struct zivora_screen_image {
  int width;
  int height;
  int stride;
  unsigned char* pixels;
} zivora_screen_image;
/* Draws the ad screens as they are now into `image` (see
 * Zivora::captureScreen). Nonzero on success; free the pixels with
 * zivora_screen_image_free(). Zero, with `image` emptied, while no ad screen
 * is shown or when the main queue did not get to it within five seconds. */
ZIVORA_API int zivora_capture_screen(zivora_screen_image* image);
ZIVORA_API void zivora_screen_image_free(zivora_screen_image* image);

/* Nonzero while ad events wait on disk to be delivered to the server. */
ZIVORA_API int zivora_has_queued_events(void);
/* Ends the SDK's work for an orderly exit (see Zivora::shutdown); the SDK
 * may be initialised again afterwards. */
ZIVORA_API void zivora_shutdown(void);

/* The SDK's version banner. */
ZIVORA_API const char* zivora_version(void);

#ifdef __cplusplus
}
#endif

#endif /* ZIVORA_C_H */
