#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

template <class Expected, class Actual>
constexpr bool isConstant = std::is_same_v<const Expected, Actual>;

static_assert(isConstant<std::int32_t, decltype(TS_HTTP_STATUS_CODE_OK)>);
static_assert(isConstant<std::int32_t, decltype(TS_HTTP_STATUS_CODE_OK_PARTIAL)>);
static_assert(isConstant<std::int32_t, decltype(TS_HTTP_STATUS_CODE_RANGE_NOT_SATISFIABLE)>);
static_assert(isConstant<std::int32_t, decltype(TS_HTTP_ERROR)>);
static_assert(isConstant<std::int32_t, decltype(TS_PLATFORM_ID)>);
static_assert(isConstant<std::int32_t, decltype(TS_AD_REPEAT_REQUEST)>);
static_assert(isConstant<float, decltype(TS_AD_PERCENT_TIME)>);
static_assert(isConstant<std::int64_t, decltype(TS_ADDITION_TIME_FOR_SHOW_CLOSE_BUTTON)>);
static_assert(isConstant<float, decltype(TS_ANIMATION_VIDEO_SHOW_TIME)>);
static_assert(isConstant<float, decltype(TS_ANIMATION_VIDEO_HIDE_TIME)>);
static_assert(isConstant<std::int32_t, decltype(TS_DEFAULT_VIDEO_BUFFER_SIZE)>);
static_assert(isConstant<float, decltype(TS_DEFAULT_VIDEO_BUFFER_PERCENT)>);
static_assert(isConstant<std::int64_t, decltype(TS_MAX_CACHE_SIZE)>);
static_assert(isConstant<std::int32_t, decltype(TS_RESERVED_FREE_SPACE)>);
static_assert(isConstant<std::int32_t, decltype(TS_MAX_EVENT_FILE_SIZE)>);
static_assert(isConstant<std::int32_t, decltype(TS_DELAY_RESEND_EVENT)>);
static_assert(isConstant<std::int32_t, decltype(TS_MAX_DELAY_RESEND_EVENT)>);
static_assert(isConstant<std::int32_t, decltype(TS_TIME_SWITCH_PAUSE)>);
static_assert(isConstant<std::int32_t, decltype(TS_TIME_CHECK_SESSION)>);
static_assert(isConstant<std::int32_t, decltype(TS_ORIENTATION_PORTRAIT)>);
static_assert(isConstant<std::int32_t, decltype(TS_ORIENTATION_LANDSCAPE)>);
static_assert(isConstant<float, decltype(TS_UI_PADDING)>);
static_assert(isConstant<double, decltype(ZivoraSDKVersionNumber)>);
static_assert(isConstant<const char*, decltype(ZivoraSDKVersionString)>);

struct Text {
  std::string_view name;
  std::string_view actual;
  std::string_view expected;
};

#define ZV_TEXT(NAME, VALUE) \
  Text { #NAME, NAME, VALUE }

TEST(ZVConstantsTest, EveryTextHasItsProtocolValue) {
  const Text texts[] = {
      // Request names.
      ZV_TEXT(TS_API_GET_INITIALIZATION, "getInitialization"),
      ZV_TEXT(TS_API_GET_VIDEO, "getVideo"),
      ZV_TEXT(TS_API_CLICK_AD, "clickAd"),
      ZV_TEXT(TS_API_EVENT_START_WATCHING_AD, "startWatchingAd"),
      ZV_TEXT(TS_API_EVENT_WATCHED_AD, "watchedAd"),
      ZV_TEXT(TS_API_EVENT_PURCHASE, "eventPurchase"),
      ZV_TEXT(TS_API_GET_MOTIVATED_REWARDS, "getMotivatedRewards"),
      ZV_TEXT(TS_API_REMOVE_MOTIVATED_REWARDS, "removeMotivatedRewards"),
      // Request fields.
      ZV_TEXT(TS_API_APP_ID, "appId"),
      ZV_TEXT(TS_API_DEVICE_INFO, "deviceInfo"),
      ZV_TEXT(TS_API_PLACEMENT_NAME, "placementId"),
      ZV_TEXT(TS_API_FILES_CACHED, "filesCached"),
      ZV_TEXT(TS_API_ORIENTATION, "orientation"),
      ZV_TEXT(TS_API_IS_MOBILE_NETWORK, "isMobileNetwork"),
      ZV_TEXT(TS_API_AD_ID, "adId"),
      ZV_TEXT(TS_API_KEY_TIME, "time"),
      ZV_TEXT(TS_API_SKIP_VIDEO, "skipVideo"),
      ZV_TEXT(TS_API_SOUND_ENABLE, "soundEnable"),
      ZV_TEXT(TS_API_AMOUNT, "amount"),
      ZV_TEXT(TS_API_CURRENCY, "currency"),
      ZV_TEXT(TS_API_PRODUCT_ID, "productId"),
      ZV_TEXT(TS_API_TRANSACTION_ID, "transactionId"),
      ZV_TEXT(TS_API_RECEIPT, "receipt"),
      ZV_TEXT(TS_API_REWARD_IDS, "rewardIds"),
      // Device-information fields.
      ZV_TEXT(TS_API_PLATFORM_ID, "platformId"),
      ZV_TEXT(TS_API_RANDOM_UID, "randomUID"),
      ZV_TEXT(TS_API_DEVICE_ID, "deviceId"),
      ZV_TEXT(TS_API_MAC_ADDRESS, "macAddress"),
      ZV_TEXT(TS_API_ADVERTISE_ID, "advertisingId"),
      ZV_TEXT(TS_API_LIMIT_AD_TRACKING, "limitAdTracking"),
      ZV_TEXT(TS_API_CLIENT_VERSION, "clientVersion"),
      ZV_TEXT(TS_API_SDK_VERSION, "sdkVersion"),
      ZV_TEXT(TS_API_DEVICE_NAME, "deviceName"),
      ZV_TEXT(TS_API_OS_VERSION, "osVersion"),
      ZV_TEXT(TS_API_DIMENSION_X, "dimensionX"),
      ZV_TEXT(TS_API_DIMENTION_Y, "dimensionY"),
      ZV_TEXT(TS_API_RAM_SIZE, "ramSize"),
      ZV_TEXT(TS_API_GPU_TYPE, "gpuType"),
      ZV_TEXT(TS_API_LANGUAGE, "language"),
      ZV_TEXT(TS_API_BUNDLE_ID, "bundleId"),
      ZV_TEXT(TS_API_REFERRER, "referrer"),
      ZV_TEXT(TS_API_APP_USER_ID, "appUserId"),
      ZV_TEXT(TS_API_DEVICE_USER_NAME, "deviceUserName"),
      // Response fields.
      ZV_TEXT(TS_API_ERROR, "error"),
      ZV_TEXT(TS_API_CLOSE_BUTTON, "closeButtonURL"),
      ZV_TEXT(TS_API_SOUND_ON_BUTTON, "soundOnButtonURL"),
      ZV_TEXT(TS_API_SOUND_OFF_BUTTON, "soundOffButtonURL"),
      ZV_TEXT(TS_API_NEW_URL, "newURL"),
      ZV_TEXT(TS_API_REMOVE_FILES, "removeFiles"),
      ZV_TEXT(TS_API_DONT_OVERRIDE_REDIRECTION, "dontOverrideRedirect"),
      ZV_TEXT(TS_API_CLICK_ID, "clickId"),
      // Ad fields.
      ZV_TEXT(TS_API_AD_TYPE, "adType"),
      ZV_TEXT(TS_API_VIDEO_URL, "videoURL"),
      ZV_TEXT(TS_API_IMAGE_URL, "imageURL"),
      ZV_TEXT(TS_API_KEY_TARGET_URL, "targetURL"),
      ZV_TEXT(TS_API_RATIO, "ratio"),
      // Reward fields.
      ZV_TEXT(TS_API_REWARDS, "rewards"),
      ZV_TEXT(TS_API_REWARD_ID, "rewardId"),
      ZV_TEXT(TS_API_REWARD, "reward"),
      ZV_TEXT(TS_API_APP_NAME, "appName"),
      ZV_TEXT(TS_API_MOTIVATION_INFO, "motivationInfo"),
      ZV_TEXT(TS_API_CURRENCY_ICON_URL, "currencyIconURL"),
      // Post-video screen fields.
      ZV_TEXT(TS_API_TITLE, "title"),
      ZV_TEXT(TS_API_DESCRIPTION, "description"),
      ZV_TEXT(TS_API_BUTTON_TEXT, "buttonText"),
      ZV_TEXT(TS_API_BUTTON_COLOR, "buttonColor"),
      ZV_TEXT(TS_API_BACKGROUND_COLOR, "backgroundColor"),
      ZV_TEXT(TS_API_BUTTON_TEXT_COLOR, "buttonTextColor"),
      ZV_TEXT(TS_API_TITLE_COLOR, "titleColor"),
      ZV_TEXT(TS_API_DESCRIPTION_COLOR, "descriptionColor"),
      // HTTP vocabulary.
      ZV_TEXT(TS_HTTP_HEADER_CONTENT_RANGE, "Content-Range"),
      ZV_TEXT(TS_HTTP_HEADER_RANGE, "Range"),
      ZV_TEXT(TS_HTTP_HEADER_CONTENT_LENGTH, "Content-Length"),
      ZV_TEXT(TS_VALID_RESPONSE, "{\"Status\":\"Accepted\"}"),
      ZV_TEXT(TS_MIME_TYPE_VIDEO, "video/mp4"),
      // Endpoints, versions, stores.
      ZV_TEXT(TS_HOST_URL, "https://api.zivora.example/HandleRequestV3.php"),
      ZV_TEXT(TS_HOST_NAME, "https://api.zivora.example/HandleEvent.php"),
      ZV_TEXT(TS_HOST_NAME_POST, "https://api.zivora.example/ProfilingEvent.php"),
      ZV_TEXT(TS_AD_SDK_VERSION, "0.2.1"),
      ZV_TEXT(TS_VIDEO_SUFFIX, "getVideo/"),
      ZV_TEXT(TS_BANNER_SUFFIX, "getBanner/"),
      ZV_TEXT(TS_USER_SETTINGS_SUITE_NAME, "com.zivora.loadedFiles"),
      ZV_TEXT(TS_CACHE_DIRECTORY, "Zivora"),
      ZV_TEXT(TS_COMMON_CONFIGURATION_PLIST, "configuration"),
      // Analytics session keys.
      ZV_TEXT(TS_SESSION_START_TIME, "ts_sesstionStartTime"),
      ZV_TEXT(TS_SESSION_LAST_TIME, "ts_sesstionLastTime"),
      ZV_TEXT(TS_SESSION_CONFIGURATION, "ts_sessionConfiguration"),
  };
  for (const auto& text : texts) EXPECT_EQ(text.actual, text.expected) << text.name;
}

struct Number {
  std::string_view name;
  double actual;
  double expected;
};

#define ZV_NUMBER(NAME, VALUE) \
  Number { #NAME, static_cast < double>(NAME), static_cast < double>(VALUE) }

TEST(ZVConstantsTest, EveryNumberHasItsProtocolValue) {
  const Number numbers[] = {
      ZV_NUMBER(TS_HTTP_STATUS_CODE_OK, 200),
      ZV_NUMBER(TS_HTTP_STATUS_CODE_OK_PARTIAL, 206),
      ZV_NUMBER(TS_HTTP_STATUS_CODE_RANGE_NOT_SATISFIABLE, 416),
      ZV_NUMBER(TS_HTTP_ERROR, -2),
      ZV_NUMBER(TS_PLATFORM_ID, 2),
      ZV_NUMBER(TS_AD_REPEAT_REQUEST, 5),
      ZV_NUMBER(TS_AD_PERCENT_TIME, 0.85f),
      ZV_NUMBER(TS_ADDITION_TIME_FOR_SHOW_CLOSE_BUTTON, 5),
      ZV_NUMBER(TS_ANIMATION_VIDEO_SHOW_TIME, 0.4f),
      ZV_NUMBER(TS_ANIMATION_VIDEO_HIDE_TIME, 0.2f),
      ZV_NUMBER(TS_DEFAULT_VIDEO_BUFFER_SIZE, 409600),
      ZV_NUMBER(TS_DEFAULT_VIDEO_BUFFER_PERCENT, 0.3f),
      ZV_NUMBER(TS_MAX_CACHE_SIZE, 41943040),
      ZV_NUMBER(TS_RESERVED_FREE_SPACE, 31457280),
      ZV_NUMBER(TS_MAX_EVENT_FILE_SIZE, 10485760),
      ZV_NUMBER(TS_DELAY_RESEND_EVENT, 1),
      ZV_NUMBER(TS_MAX_DELAY_RESEND_EVENT, 100),
      ZV_NUMBER(TS_TIME_SWITCH_PAUSE, 30),
      ZV_NUMBER(TS_TIME_CHECK_SESSION, 3),
      ZV_NUMBER(TS_ORIENTATION_PORTRAIT, 1),
      ZV_NUMBER(TS_ORIENTATION_LANDSCAPE, 2),
      ZV_NUMBER(TS_UI_PADDING, 10.0f),
      ZV_NUMBER(ZivoraSDKVersionNumber, 1.0),
  };
  for (const auto& number : numbers) EXPECT_EQ(number.actual, number.expected) << number.name;
}

TEST(ZVConstantsTest, TheVersionBannerNamesTheProjectAndItsVersion) {
  EXPECT_EQ(std::string(ZivoraSDKVersionString),
            std::string("@(#)PROGRAM:Zivora  PROJECT:Zivora-") + ZIVORA_VERSION_STRING);
}

}  // namespace
}  // namespace zivora
