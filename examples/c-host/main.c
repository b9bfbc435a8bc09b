/* A C host: initialises the SDK against an ad server, asks it to cache a
 * placement and prints every callback it hears until the placement is
 * answered (or 30 s pass).
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

static void finish(void) {
  pthread_mutex_lock(&lock);
  done = 1;
  pthread_cond_signal(&answered);
  pthread_mutex_unlock(&lock);
}

static void on_cache(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_did_cache %s\n", placement);
  finish();
}

static void on_fail(void* user_data, const char* placement, uint64_t error) {
  (void)user_data;
  printf("callback: video_did_fail_to_load %s %llu\n", placement, (unsigned long long)error);
  finish();
}

static void on_reward(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_receive_reward %s\n", placement);
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
  zivora_set_callbacks(&callbacks);
  zivora_cache_video(placement);

  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 30;
  pthread_mutex_lock(&lock);
  while (!done) {
    if (pthread_cond_timedwait(&answered, &lock, &deadline) != 0) break;
  }
  ok = done;
  pthread_mutex_unlock(&lock);
  printf(ok ? "placement answered\n" : "no answer within 30 s\n");
  fflush(stdout);
  return ok ? 0 : 1;
}
