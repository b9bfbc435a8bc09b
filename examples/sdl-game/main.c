/* A game that owns its SDL window and loop and shows rewarded ads in it:
 * the SDK runs on the game's thread (zivora_pump() once a frame), draws its
 * screens into the game's window, and takes the game's input while an ad is
 * up. Press R to ask for an ad, Escape to quit.
 *
 *   sdl-game --server URL [--ca FILE] [--data-dir DIR] [--placement NAME]
 *            [--auto]   ask for an ad at once and quit once it is over */
#include <SDL.h>
#include <stdio.h>
#include <string.h>
#include <zivora/zivora_c.h>

typedef struct game {
  const char* placement;
  int waiting;         /* an ad was asked for and not yet answered */
  int over;            /* --auto: the ad request ran its course */
  Uint32 dismissed_at; /* when the video gave way to the post-video screen */
  float x, dx;
} game;

static void on_cache(void* user_data, const char* placement) {
  game* g = (game*)user_data;
  printf("callback: video_did_cache %s\n", placement);
  zivora_show_video(placement);
  (void)g;
}

static void on_fail(void* user_data, const char* placement, uint64_t error) {
  game* g = (game*)user_data;
  printf("callback: video_did_fail_to_load %s %llu\n", placement, (unsigned long long)error);
  g->waiting = 0;
  g->over = 1;
}

static void on_dismiss(void* user_data, const char* placement) {
  game* g = (game*)user_data;
  printf("callback: video_did_dismiss %s\n", placement);
  g->dismissed_at = SDL_GetTicks();
}

/* --auto stands in for the player: a second after the post-video screen has
   appeared, Escape closes it, as a player's key press would. */
static void press_escape(void) {
  SDL_Event press;
  memset(&press, 0, sizeof press);
  press.type = SDL_KEYDOWN;
  press.key.state = SDL_PRESSED;
  press.key.keysym.scancode = SDL_SCANCODE_ESCAPE;
  press.key.keysym.sym = SDLK_ESCAPE;
  SDL_PushEvent(&press);
}

static void on_reward(void* user_data, const char* placement) {
  (void)user_data;
  printf("callback: video_receive_reward %s\n", placement);
}

static void on_closed(void* user_data, const char* placement) {
  game* g = (game*)user_data;
  printf("callback: video_window_did_close %s\n", placement);
  g->waiting = 0;
  g->over = 1;
}

static const char* argument(int argc, char** argv, const char* flag, const char* fallback) {
  int i;
  for (i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], flag) == 0) return argv[i + 1];
  }
  return fallback;
}

static int has_flag(int argc, char** argv, const char* flag) {
  int i;
  for (i = 1; i < argc; ++i) {
    if (strcmp(argv[i], flag) == 0) return 1;
  }
  return 0;
}

static void ask_for_ad(game* g) {
  if (g->waiting) return;
  g->waiting = 1;
  printf("asking for an ad on %s\n", g->placement);
  zivora_cache_video(g->placement);
}

static void draw_game(SDL_Renderer* renderer, game* g) {
  SDL_Rect box;
  g->x += g->dx;
  if (g->x < 0 || g->x > 600) g->dx = -g->dx;
  box.x = (int)g->x;
  box.y = 160;
  box.w = 40;
  box.h = 40;
  SDL_SetRenderDrawColor(renderer, 20, 30, 60, 255);
  SDL_RenderClear(renderer);
  SDL_SetRenderDrawColor(renderer, 240, 200, 40, 255);
  SDL_RenderFillRect(renderer, &box);
  SDL_RenderPresent(renderer);
}

int main(int argc, char** argv) {
  game g = {0};
  zivora_options options;
  zivora_callbacks callbacks;
  SDL_Window* window;
  SDL_Renderer* renderer;
  int automatic = has_flag(argc, argv, "--auto");
  int running = 1;
  Uint32 started;

  g.placement = argument(argc, argv, "--placement", "rewarded");
  g.dx = 4;
  if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_GAMECONTROLLER) != 0) {
    fprintf(stderr, "SDL: %s\n", SDL_GetError());
    return 1;
  }
  window =
      SDL_CreateWindow("sdl-game", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, 640, 360, 0);
  renderer = window ? SDL_CreateRenderer(window, -1, 0) : NULL;
  if (!renderer) {
    fprintf(stderr, "SDL: %s\n", SDL_GetError());
    return 1;
  }

  zivora_options_init(&options);
  options.application_name = "sdl-game";
  options.ad_endpoint = argument(argc, argv, "--server", NULL);
  options.ca_file = argument(argc, argv, "--ca", NULL);
  options.data_root = argument(argc, argv, "--data-dir", NULL);
  options.main_queue_mode = ZIVORA_MAIN_QUEUE_HOST_PUMPED;
  options.host_window = window;
  zivora_initialize("sdl-game-app", &options);

  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &g;
  callbacks.video_did_cache = on_cache;
  callbacks.video_did_fail_to_load = on_fail;
  callbacks.video_receive_reward = on_reward;
  callbacks.video_window_did_close = on_closed;
  callbacks.video_did_dismiss = on_dismiss;
  zivora_set_callbacks(&callbacks);
  if (automatic) ask_for_ad(&g);

  started = SDL_GetTicks();
  while (running) {
    SDL_Event event;
    while (SDL_PollEvent(&event)) {
      if (zivora_handle_event(&event)) continue; /* the ad screen took it */
      if (event.type == SDL_QUIT) running = 0;
      if (event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_ESCAPE) running = 0;
      if (event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_r) ask_for_ad(&g);
    }
    zivora_pump();
    if (automatic && g.dismissed_at && SDL_GetTicks() - g.dismissed_at > 1000) {
      g.dismissed_at = 0;
      press_escape();
    }
    if (!zivora_is_presenting()) draw_game(renderer, &g);
    if (automatic && (g.over || SDL_GetTicks() - started > 60000)) running = 0;
    SDL_Delay(16);
  }

  printf(g.over ? "placement answered\n" : "no answer within 60 s\n");
  fflush(stdout);
  SDL_DestroyRenderer(renderer);
  SDL_DestroyWindow(window);
  SDL_Quit();
  return !automatic || g.over ? 0 : 1;
}
