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

TEST(ZivoraC, NullArgumentsAreLoggedAndIgnored) {
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
  EXPECT_EQ(scope.log().texts(),
            (std::vector<std::string>{
                "[Zivora][zivora_initialize] Error: app_id is NULL",
                "[Zivora][zivora_show_video] Error: placement is NULL",
                "[Zivora][zivora_cache_video] Error: placement is NULL",
                "[Zivora][zivora_is_ready_video] Error: placement is NULL",
                "[Zivora][zivora_purchase_event_with_receipt] Error: receipt is NULL",
                "[Zivora][zivora_remove_motivated_rewards] Error: a reward id is NULL",
                "[Zivora][zivora_remove_motivated_rewards] Error: reward_ids is NULL"}));
}

TEST(ZivoraC, CallsBeforeInitialisationReachTheFacadesChecks) {
  test::ScopedContext scope;
  zivora_show_video("p");
  zivora_purchase_event(-1, "USD", "t");
  zivora_purchase_event(1, nullptr, "t");
  EXPECT_EQ(zivora_pump(), 0u);
  // No ad screen to act on.
  EXPECT_EQ(zivora_perform_screen_action(ZIVORA_SCREEN_ACTION_CLOSE), 0);
  EXPECT_STREQ(zivora_version(), ZivoraSDKVersionString);
  auto texts = scope.log().texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[0], "[Zivora] Error: Zivora didn't initialized. \nPlease, Initialize Zivora!");
  EXPECT_EQ(texts[1], "[Zivora][purchaseEvent] Error: Incorect arguments");
  EXPECT_EQ(texts[2], texts[1]);
}

TEST(ZivoraC, StructsWithoutASizeAreRefused) {
  test::ScopedContext scope;
  zivora_options options{};
  zivora_initialize("app", &options);
  zivora_callbacks callbacks{};
  zivora_set_callbacks(&callbacks);
  EXPECT_EQ(
      scope.log().texts(),
      (std::vector<std::string>{
          "[Zivora][zivora_initialize] Error: struct_size is 0; use the *_init function",
          "[Zivora][zivora_set_callbacks] Error: struct_size is 0; use the *_init function"}));
}

struct Heard {
  std::vector<std::string> lines;
  int takeRewards = 1;
};

TEST(CCallbackDelegate, CallsOnlyWhatIsSetAndPassesTheRewardTable) {
  Heard heard;
  zivora_callbacks callbacks;
  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &heard;
  callbacks.video_did_fail_to_load = [](void* user, const char* placement, uint64_t error) {
    static_cast<Heard*>(user)->lines.push_back(std::string(placement) + ":" +
                                               std::to_string(error));
  };
  callbacks.receive_motivated_rewards = [](void* user, const zivora_reward* rewards, size_t count) {
    auto* heard = static_cast<Heard*>(user);
    for (size_t i = 0; i < count; ++i) {
      heard->lines.push_back(std::string(rewards[i].reward_id) + "/" + rewards[i].app_name + "/" +
                             std::to_string(rewards[i].amount));
    }
    return heard->takeRewards;
  };
  CCallbackDelegate delegate(callbacks);
  delegate.videoDidCache("ignored");
  delegate.videoDidFailToLoad("p", 3);
  EXPECT_TRUE(delegate.receiveMotivatedRewards({ZVMotivatedRewardInfo("r1", "Game", 50)}));
  heard.takeRewards = 0;
  EXPECT_FALSE(delegate.receiveMotivatedRewards({}));
  EXPECT_EQ(heard.lines, (std::vector<std::string>{"p:3", "r1/Game/50"}));
}

TEST(CCallbackDelegate, AnOlderSmallerTableLeavesNewerMembersUnset) {
  Heard heard;
  zivora_callbacks callbacks;
  zivora_callbacks_init(&callbacks);
  callbacks.user_data = &heard;
  callbacks.video_did_cache = [](void* user, const char* placement) {
    static_cast<Heard*>(user)->lines.push_back(placement);
  };
  callbacks.failed_request_motivated_rewards = [](void* user, uint64_t) {
    static_cast<Heard*>(user)->lines.push_back("must not be called");
  };
  callbacks.struct_size = offsetof(zivora_callbacks, video_did_fail_to_load);
  CCallbackDelegate delegate(callbacks);
  delegate.videoDidCache("p");
  delegate.failedRequestMotivatedRewards(4);
  EXPECT_EQ(heard.lines, std::vector<std::string>{"p"});
}

}  // namespace
}  // namespace zivora
