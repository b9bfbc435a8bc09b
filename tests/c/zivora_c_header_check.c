/* Compiled as C99 with -Wall -Wextra -pedantic -Werror: the C header must
 * stay plain C. */
#include "zivora/zivora_c.h"

static void on_cache(void* user_data, const char* placement) {
  (void)user_data;
  (void)placement;
}

int zivora_c_header_check(void) {
  zivora_options options;
  zivora_callbacks callbacks;
  zivora_options_init(&options);
  zivora_callbacks_init(&callbacks);
  options.main_queue_mode = ZIVORA_MAIN_QUEUE_HOST_PUMPED;
  callbacks.video_did_cache = on_cache;
  return (int)(options.struct_size + callbacks.struct_size) + ZIVORA_ERROR_INITIALIZATION_FAILED;
}
