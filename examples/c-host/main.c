/* A C host: initialises the SDK against an ad server, caches a placement,
 * shows it once cached, closes the post-video screen a second after it
 * appears (as a player's button press would) and prints every callback it
 * hears until the ad has paid its reward or failed (or 60 s pass).
 *
 *   c-host --server URL [--ca FILE] [--data-dir DIR] [--placement NAME] */
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <zivora/zivora_c.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t answered = PTHREAD_COND_INITIALIZER;
static int done = 0;
static int dismissed = 0; /* the post-video screen is up */

static void finish(void) {
  pthread_mutex_lock(&lock);
  done = 1;
  pthread_cond_signal(&answered);
  pthread_mutex_unlock(&lock);
}

static void on_cache(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_did_cache %s\n", placement);
  zivora_show_video(placement);
}

static void on_dismiss(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_did_dismiss %s\n", placement);
  pthread_mutex_lock(&lock);
  dismissed = 1;
  pthread_cond_signal(&answered);
  pthread_mutex_unlock(&lock);
}

static void on_displayed(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_window_did_display %s\n", placement);
}

static void on_closed(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_window_did_close %s\n", placement);
}

static void on_fail(void* user_data, const char* placement, uint64_t error) {
  (void)user_data;
  printf("callback: video_did_fail_to_load %s %llu\n", placement, (unsigned long long)error);
  finish();
}

static void on_reward(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_receive_reward %s\n", placement);
  finish();
}

static const char* argument(int argc, char** argv, const char* flag, const char* fallback) {
  int i;
  for (i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], flag) == 0) return argv[i + 1];
  }
  return fallback;
}

int main(int argc, char** argv) {
  zivora_options options;
  zivora_callbacks callbacks;
  struct timespec deadline;
  const char* placement = argument(argc, argv, "--placement", "rewarded");
  int ok;

  zivora_options_init(&options);
  options.application_name = "c-host";
  options.ad_endpoint = argument(argc, argv, "--server", NULL);
  options.ca_file = argument(argc, argv, "--ca", NULL);
  options.data_root = argument(argc, argv, "--data-dir", NULL);
  printf("zivora %s\n", zivora_version());
  zivora_initialize("c-host-app", &options);

  zivora_callbacks_init(&callbacks);
  callbacks.video_did_cache = on_cache;
  callbacks.video_did_fail_to_load = on_fail;
  callbacks.video_receive_reward = on_reward;
  callbacks.video_did_dismiss = on_dismiss;
  callbacks.video_window_did_display = on_displayed;
  callbacks.video_window_did_close = on_closed;
  zivora_set_callbacks(&callbacks);
  zivora_cache_video(placement);

  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 60;
  pthread_mutex_lock(&lock);
  while (!done) {
    if (dismissed) {
      /* A second for the post-video screen to settle, then "close". */
      struct timespec pause = {1, 0};
      dismissed = 0;
      pthread_mutex_unlock(&lock);
      nanosleep(&pause, NULL);
      printf("closing the post-video screen: %d\n",
             zivora_perform_screen_action(ZIVORA_SCREEN_ACTION_CLOSE));
      pthread_mutex_lock(&lock);
      continue;
    }
    if (pthread_cond_timedwait(&answered, &lock, &deadline) != 0) break;
  }
  ok = done;
  pthread_mutex_unlock(&lock);
  printf(ok ? "placement answered\n" : "no answer within 60 s\n");
  fflush(stdout);
  return ok ? 0 : 1;
}
