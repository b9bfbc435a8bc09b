// The C interface: argument checks before anything else, struct sizes, and
// the callback table.
#include <gtest/gtest.h>

#include <cstddef>

#include "support/ScopedContext.h"
#include "top/CCallbackDelegate.h"
#include "zivora/ZVConstants.h"
#include "zivora/zivora_c.h"

namespace zivora {
namespace {

// Null arguments and structs without a size are logged and ignored; calls
// before initialisation reach the facade's own checks.
TEST(ZivoraC, BadArgumentsAreLoggedAndIgnored) {
  test::ScopedContext scope;
  zivora_initialize(nullptr, nullptr);
  zivora_show_video(nullptr);
  zivora_cache_video(nullptr);
  EXPECT_EQ(zivora_is_ready_video(nullptr), 0);
  zivora_purchase_event_with_receipt(1, "USD", "t", nullptr);
  const char* ids[] = {"r1", nullptr};
  zivora_remove_motivated_rewards(ids, 2);
  zivora_remove_motivated_rewards(nullptr, 3);
  zivora_options_init(nullptr);
  zivora_callbacks_init(nullptr);
  zivora_options options{};
  zivora_initialize("app", &options);
  zivora_callbacks callbacks{};
  zivora_set_callbacks(&callbacks);
  zivora_show_video("p");
  zivora_purchase_event(-1, "USD", "t");
  zivora_purchase_event(1, nullptr, "t");
  EXPECT_EQ(zivora_pump(), 0u);
  // No ad screen to act on.
  EXPECT_EQ(zivora_perform_screen_action(ZIVORA_SCREEN_ACTION_CLOSE), 0);
  EXPECT_STREQ(zivora_version(), ZivoraSDKVersionString);
  EXPECT_EQ(scope.log().texts(),
            (std::vector<std::string>{
                "[Zivora][zivora_initialize] Error: app_id is NULL",
                "[Zivora][zivora_show_video] Error: placement is NULL",
                "[Zivora][zivora_cache_video] Error: placement is NULL",
                "[Zivora][zivora_is_ready_video] Error: placement is NULL",
                "[Zivora][zivora_purchase_event_with_receipt] Error: receipt is NULL",
                "[Zivora][zivora_remove_motivated_rewards] Error: a reward id is NULL",
                "[Zivora][zivora_remove_motivated_rewards] Error: reward_ids is NULL",
                "[Zivora][zivora_initialize] Error: struct_size is 0; use the *_init function",
                "[Zivora][zivora_set_callbacks] Error: struct_size is 0; use the *_init function",
                "[Zivora] Error: Zivora didn't initialized. \nPlease, Initialize Zivora!",
                "[Zivora][purchaseEvent] Error: Incorect arguments",
                "[Zivora][purchaseEvent] Error: Incorect arguments"}));
}

struct Heard {
  std::vector<std::string> lines;
  int takeRewards = 1;
  static void add(void* user, std::string line) {
    static_cast<Heard*>(user)->lines.push_back(std::move(line));
  }
};

// Only what is set is called; the reward carries its id when the host asks
// for it; a table from an older build, smaller than today's, leaves the
// members past its size unread.
TEST(CCallbackDelegate, CallsOnlyWhatIsSetAndReadsNoMemberPastTheTablesSize) {
  Heard heard;
  zivora_callbacks table;
  zivora_callbacks_init(&table);
  table.user_data = &heard;
  table.video_did_fail_to_load = [](void* user, const char* placement, uint64_t error) {
    Heard::add(user, std::string(placement) + ":" + std::to_string(error));
  };
  table.receive_motivated_rewards = [](void* user, const zivora_reward* rewards, size_t count) {
    for (size_t i = 0; i < count; ++i)
      Heard::add(user, std::string(rewards[i].reward_id) + "/" + rewards[i].app_name + "/" +
                           std::to_string(rewards[i].amount));
    return static_cast<Heard*>(user)->takeRewards;
  };
  table.video_receive_reward = [](void* user, const char* placement) {
    Heard::add(user, placement);
  };
  CCallbackDelegate withoutId(table);
  withoutId.videoDidCache("ignored");
  withoutId.videoDidFailToLoad("p", 3);
  EXPECT_TRUE(withoutId.receiveMotivatedRewards({ZVMotivatedRewardInfo("r1", "Game", 50)}));
  heard.takeRewards = 0;
  EXPECT_FALSE(withoutId.receiveMotivatedRewards({}));
  withoutId.videoReceiveReward("p", "id-1");

  table.video_receive_reward_with_id = [](void* user, const char* placement, const char* id) {
    Heard::add(user, std::string(placement) + "/" + id);
  };
  CCallbackDelegate(table).videoReceiveReward("p", "id-2");
  table.struct_size = offsetof(zivora_callbacks, video_receive_reward_with_id);
  CCallbackDelegate(table).videoReceiveReward("p", "id-3");
  table.failed_request_motivated_rewards = [](void* user, uint64_t) {
    Heard::add(user, "must not be called");
  };
  table.struct_size = offsetof(zivora_callbacks, video_did_fail_to_load);
  CCallbackDelegate(table).failedRequestMotivatedRewards(4);
  CCallbackDelegate(table).videoDidFailToLoad("q", 3);
  EXPECT_EQ(heard.lines, (std::vector<std::string>{"p:3", "r1/Game/50", "p", "p/id-2", "p"}));
}

}  // namespace
}  // namespace zivora
