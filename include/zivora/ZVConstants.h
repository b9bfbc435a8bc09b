#pragma once

// The named vocabulary of the ad protocol: request names, JSON keys, HTTP
// names and status codes, endpoints, store names and numeric limits. Code
// refers to these names and never repeats their literals. Some names carry
// historical misspellings (TS_API_DIMENTION_Y, "sesstion"); they are part of
// the interface and stay as they are.

#include <cstdint>

#include "zivora/Export.h"

namespace zivora {

// --- Request names: the single top-level key of a request body -----------
inline constexpr char TS_API_GET_INITIALIZATION[] = "getInitialization";
inline constexpr char TS_API_GET_VIDEO[] = "getVideo";
inline constexpr char TS_API_CLICK_AD[] = "clickAd";
inline constexpr char TS_API_EVENT_START_WATCHING_AD[] = "startWatchingAd";
inline constexpr char TS_API_EVENT_WATCHED_AD[] = "watchedAd";
inline constexpr char TS_API_EVENT_PURCHASE[] = "eventPurchase";
inline constexpr char TS_API_GET_MOTIVATED_REWARDS[] = "getMotivatedRewards";
inline constexpr char TS_API_REMOVE_MOTIVATED_REWARDS[] = "removeMotivatedRewards";

// --- Request fields ---------------------------------------------------------
inline constexpr char TS_API_APP_ID[] = "appId";
inline constexpr char TS_API_DEVICE_INFO[] = "deviceInfo";
inline constexpr char TS_API_PLACEMENT_NAME[] = "placementId";
inline constexpr char TS_API_FILES_CACHED[] = "filesCached";
inline constexpr char TS_API_ORIENTATION[] = "orientation";
inline constexpr char TS_API_IS_MOBILE_NETWORK[] = "isMobileNetwork";
inline constexpr char TS_API_AD_ID[] = "adId";
inline constexpr char TS_API_KEY_TIME[] = "time";
inline constexpr char TS_API_SKIP_VIDEO[] = "skipVideo";
inline constexpr char TS_API_SOUND_ENABLE[] = "soundEnable";
inline constexpr char TS_API_AMOUNT[] = "amount";
inline constexpr char TS_API_CURRENCY[] = "currency";
inline constexpr char TS_API_PRODUCT_ID[] = "productId";
inline constexpr char TS_API_TRANSACTION_ID[] = "transactionId";
inline constexpr char TS_API_RECEIPT[] = "receipt";
inline constexpr char TS_API_REWARD_IDS[] = "rewardIds";

// --- Device-information fields: members of "deviceInfo" ----------------------
inline constexpr char TS_API_PLATFORM_ID[] = "platformId";
inline constexpr char TS_API_RANDOM_UID[] = "randomUID";
inline constexpr char TS_API_DEVICE_ID[] = "deviceId";
inline constexpr char TS_API_MAC_ADDRESS[] = "macAddress";
inline constexpr char TS_API_ADVERTISE_ID[] = "advertisingId";
inline constexpr char TS_API_LIMIT_AD_TRACKING[] = "limitAdTracking";
inline constexpr char TS_API_CLIENT_VERSION[] = "clientVersion";
inline constexpr char TS_API_SDK_VERSION[] = "sdkVersion";
inline constexpr char TS_API_DEVICE_NAME[] = "deviceName";
inline constexpr char TS_API_OS_VERSION[] = "osVersion";
inline constexpr char TS_API_DIMENSION_X[] = "dimensionX";
inline constexpr char TS_API_DIMENTION_Y[] = "dimensionY";
inline constexpr char TS_API_RAM_SIZE[] = "ramSize";
inline constexpr char TS_API_GPU_TYPE[] = "gpuType";
inline constexpr char TS_API_LANGUAGE[] = "language";
inline constexpr char TS_API_BUNDLE_ID[] = "bundleId";
inline constexpr char TS_API_REFERRER[] = "referrer";
inline constexpr char TS_API_APP_USER_ID[] = "appUserId";
inline constexpr char TS_API_DEVICE_USER_NAME[] = "deviceUserName";

// --- Response fields of the initialization, ad and click replies -------------
inline constexpr char TS_API_ERROR[] = "error";
inline constexpr char TS_API_CLOSE_BUTTON[] = "closeButtonURL";
inline constexpr char TS_API_SOUND_ON_BUTTON[] = "soundOnButtonURL";
inline constexpr char TS_API_SOUND_OFF_BUTTON[] = "soundOffButtonURL";
inline constexpr char TS_API_NEW_URL[] = "newURL";
inline constexpr char TS_API_REMOVE_FILES[] = "removeFiles";
inline constexpr char TS_API_DONT_OVERRIDE_REDIRECTION[] = "dontOverrideRedirect";
inline constexpr char TS_API_CLICK_ID[] = "clickId";

// --- Ad fields: members of one ad in a "getVideo" reply -----------------------
inline constexpr char TS_API_AD_TYPE[] = "adType";
inline constexpr char TS_API_VIDEO_URL[] = "videoURL";
inline constexpr char TS_API_IMAGE_URL[] = "imageURL";
inline constexpr char TS_API_KEY_TARGET_URL[] = "targetURL";
inline constexpr char TS_API_RATIO[] = "ratio";

// --- Reward fields ----------------------------------------------------------
inline constexpr char TS_API_REWARDS[] = "rewards";
inline constexpr char TS_API_REWARD_ID[] = "rewardId";
inline constexpr char TS_API_REWARD[] = "reward";
inline constexpr char TS_API_APP_NAME[] = "appName";
inline constexpr char TS_API_MOTIVATION_INFO[] = "motivationInfo";
inline constexpr char TS_API_CURRENCY_ICON_URL[] = "currencyIconURL";

// --- Post-video screen fields -------------------------------------------------
inline constexpr char TS_API_TITLE[] = "title";
inline constexpr char TS_API_DESCRIPTION[] = "description";
inline constexpr char TS_API_BUTTON_TEXT[] = "buttonText";
inline constexpr char TS_API_BUTTON_COLOR[] = "buttonColor";
inline constexpr char TS_API_BACKGROUND_COLOR[] = "backgroundColor";
inline constexpr char TS_API_BUTTON_TEXT_COLOR[] = "buttonTextColor";
inline constexpr char TS_API_TITLE_COLOR[] = "titleColor";
inline constexpr char TS_API_DESCRIPTION_COLOR[] = "descriptionColor";

// --- HTTP vocabulary ----------------------------------------------------------
inline constexpr char TS_HTTP_HEADER_CONTENT_RANGE[] = "Content-Range";
inline constexpr char TS_HTTP_HEADER_RANGE[] = "Range";
inline constexpr char TS_HTTP_HEADER_CONTENT_LENGTH[] = "Content-Length";
inline constexpr std::int32_t TS_HTTP_STATUS_CODE_OK = 200;
inline constexpr std::int32_t TS_HTTP_STATUS_CODE_OK_PARTIAL = 206;
inline constexpr std::int32_t TS_HTTP_STATUS_CODE_RANGE_NOT_SATISFIABLE = 416;
// The status a transport reports when it got no usable answer at all.
inline constexpr std::int32_t TS_HTTP_ERROR = -2;
// The analytics endpoint's acknowledgement, compared with spaces removed.
inline constexpr char TS_VALID_RESPONSE[] = "{\"Status\":\"Accepted\"}";
inline constexpr char TS_MIME_TYPE_VIDEO[] = "video/mp4";

// --- Endpoints, versions and the names of stores --------------------------------
// Built-in endpoints on a reserved domain: every real host passes its own
// through the host options.
inline constexpr char TS_HOST_URL[] = "https://api.zivora.example/HandleRequestV3.php";
inline constexpr char TS_HOST_NAME[] = "https://api.zivora.example/HandleEvent.php";
inline constexpr char TS_HOST_NAME_POST[] = "https://api.zivora.example/ProfilingEvent.php";
inline constexpr char TS_AD_SDK_VERSION[] = "0.2.1";
inline constexpr char TS_VIDEO_SUFFIX[] = "getVideo/";
inline constexpr char TS_BANNER_SUFFIX[] = "getBanner/";
inline constexpr char TS_USER_SETTINGS_SUITE_NAME[] = "com.zivora.loadedFiles";
inline constexpr char TS_CACHE_DIRECTORY[] = "Zivora";
inline constexpr char TS_COMMON_CONFIGURATION_PLIST[] = "configuration";

// The library's version, for hosts that check it at run time.
ZIVORA_API extern const double ZivoraSDKVersionNumber;
ZIVORA_API extern const char* const ZivoraSDKVersionString;

// --- Numeric limits ---------------------------------------------------------
inline constexpr std::int32_t TS_PLATFORM_ID = 2;
// Seconds per failed attempt in the delay before an ad request is retried.
inline constexpr std::int32_t TS_AD_REPEAT_REQUEST = 5;
inline constexpr float TS_AD_PERCENT_TIME = 0.85f;
// Seconds added before the close button shows.
inline constexpr std::int64_t TS_ADDITION_TIME_FOR_SHOW_CLOSE_BUTTON = 5;
// Seconds of the video screen's show and hide animations.
inline constexpr float TS_ANIMATION_VIDEO_SHOW_TIME = 0.4f;
inline constexpr float TS_ANIMATION_VIDEO_HIDE_TIME = 0.2f;
// What must be on disk before a video plays: 400 KiB, or this share of the
// whole once its size is known.
inline constexpr std::int32_t TS_DEFAULT_VIDEO_BUFFER_SIZE = 409600;
inline constexpr float TS_DEFAULT_VIDEO_BUFFER_PERCENT = 0.3f;
// Bytes of cache (40 MiB), and of disk always left free (30 MiB).
inline constexpr std::int64_t TS_MAX_CACHE_SIZE = 41943040;
inline constexpr std::int32_t TS_RESERVED_FREE_SPACE = 31457280;
// The append limit of both event files (10 MiB).
inline constexpr std::int32_t TS_MAX_EVENT_FILE_SIZE = 10485760;
// First and largest resend delay of both event queues, in seconds.
inline constexpr std::int32_t TS_DELAY_RESEND_EVENT = 1;
inline constexpr std::int32_t TS_MAX_DELAY_RESEND_EVENT = 100;
// Analytics sessions: the pause that ends a session and the check period, in
// seconds.
inline constexpr std::int32_t TS_TIME_SWITCH_PAUSE = 30;
inline constexpr std::int32_t TS_TIME_CHECK_SESSION = 3;
// Values of "orientation".
inline constexpr std::int32_t TS_ORIENTATION_PORTRAIT = 1;
inline constexpr std::int32_t TS_ORIENTATION_LANDSCAPE = 2;
// Points of padding in the ad screens.
inline constexpr float TS_UI_PADDING = 10.0f;

// --- Persisted analytics session keys ("sesstion" is spelled so on purpose) ---
inline constexpr char TS_SESSION_START_TIME[] = "ts_sesstionStartTime";
inline constexpr char TS_SESSION_LAST_TIME[] = "ts_sesstionLastTime";
inline constexpr char TS_SESSION_CONFIGURATION[] = "ts_sessionConfiguration";

// --- Analytics records: parameter words, fixed fields, event names ----------
inline constexpr char TS_PARAMETER_TYPE_STRING[] = "String";
inline constexpr char TS_PARAMETER_TYPE_INTEGER[] = "Integer";
inline constexpr char TS_PARAMETER_TYPE_DOUBLE[] = "Double";
inline constexpr char TS_PARAMETER_NAME[] = "name";
inline constexpr char TS_PARAMETER_TYPE[] = "type";
inline constexpr char TS_PARAMETER_VALUE[] = "value";
inline constexpr char TS_PARAMETER_PREFIX[] = "p";

inline constexpr char TS_APP_ID[] = "bo_AppId";
inline constexpr char TS_EVENT_NAME[] = "bo_Name";
inline constexpr char TS_GAME_USER_ID[] = "bo_GameUserId";
inline constexpr char TS_PLATFORM_ID_NAME[] = "bo_PlatformId";
inline constexpr char TS_RANDOM_UID[] = "bo_RandomUID";
inline constexpr char TS_CLIENT_VERSION[] = "bo_ClientVersion";
inline constexpr char TS_SDK_VERSION[] = "bo_SDKVersion";
inline constexpr char TS_CLIENT_TIMESTAMP[] = "bo_Timestamp";
inline constexpr char TS_CLIENT_TIME[] = "bo_ClientTime";
inline constexpr char TS_ORDER[] = "bo_Order";
inline constexpr char TS_DEVICE_ID[] = "bo_DeviceId";
inline constexpr char TS_DEVICE_NAME[] = "bo_DeviceName";
inline constexpr char TS_OS_VERSION[] = "bo_OSVersion";
inline constexpr char TS_DIMENSION_X[] = "bo_DimensionX";
inline constexpr char TS_DIMENSION_Y[] = "bo_DimensionY";
inline constexpr char TS_ADVERTISING_ID[] = "bo_AdvertisingId";
inline constexpr char TS_RAM_SIZE[] = "bo_RamSize";
inline constexpr char TS_GPU_TYPE[] = "bo_GpuType";
inline constexpr char TS_LANGUAGE[] = "bo_Language";
inline constexpr char TS_LIMIT_AD_TRACKING[] = "bo_LimitAdTracking";
inline constexpr char TS_BUNDLE_ID[] = "bo_BundleId";
inline constexpr char TS_REFERRER[] = "bo_Referrer";
inline constexpr char TS_MAC_ADDRESS[] = "bo_MACAdress";
inline constexpr char TS_TRACKER_ID[] = "bo_TrackerId";
inline constexpr char TS_PUSH_TOKEN[] = "bo_PushToken";
inline constexpr char TS_HASH_SUM[] = "bo_HashSum";

inline constexpr char TS_AMOUNT[] = "Amount";
inline constexpr char TS_CURRENCY[] = "Currency";
inline constexpr char TS_PRODUCT_ID[] = "ProductId";
inline constexpr char TS_TRANSACTION_ID[] = "TransactionId";

inline constexpr char TS_EVENT_NAME_APP_OPEN[] = "AppOpen";
inline constexpr char TS_EVENT_NAME_PURCHASE[] = "Purchase";
inline constexpr char TS_EVENT_NAME_UPDATE_SETTING[] = "UpdateSetting";
inline constexpr char TS_EVENT_NAME_SESSION_FINISHED[] = "SessionFinished";

// Kinds of diagnostic analytics events.
inline constexpr char TSP_EVENT_NAME_INFO[] = "info";
inline constexpr char TSP_EVENT_NAME_WARNING[] = "warning";
inline constexpr char TSP_EVENT_NAME_ERROR[] = "error";
inline constexpr char TSP_EVENT_NAME_FATAL_ERROR[] = "fatalError";
inline constexpr char TSP_EVENT_NAME_INVOKE_DELEGATE[] = "invokeDelegate";
inline constexpr char TSP_EXCEPTION_EVENT[] = "Exception";
inline constexpr char TSP_CLASS_NAME[] = "ClassName";
inline constexpr char TSP_METHOD_NAME[] = "MethodName";
inline constexpr char TSP_MESSAGE[] = "Message";
inline constexpr char TSP_EXCEPTION_NAME[] = "exceptionName";
inline constexpr char TSP_EXCEPTION_REASON[] = "reason";
inline constexpr char TSP_EXCEPTION_STACK[] = "stack";
inline constexpr char TSP_UNIT_ID[] = "UnitId";

// Device identity: the secret items and their error domain.
inline constexpr char ZVP_IDFV_KEY[] = "zvp_idfv";
inline constexpr char ZVP_RANDOM_KEY[] = "zvp_random_uid";
inline constexpr char ZVP_GAME_USER_ID_KEY[] = "tsp_gameuser_id";
inline constexpr char ZVP_IDFV_SERVICE[] = "com.zivora.profiling.tsp";
inline constexpr char ZVP_IDFV_ACCESS_GROUP[] = "com.zivora.profiling";
inline constexpr char TSPSaveKeychainErrorDomain[] = "com.zivora.profiling.domain";

// Analytics sessions: the store's suite and the record's arguments.
inline constexpr char TSP_SESSION_CONFIGURATION[] = "sessionConfigurationProfiling";
inline constexpr char TS_ARGUMENT_START_SESSION_TIME[] = "Start";
inline constexpr char TS_ARGUMENT_SESSION_TIME_DURATION[] = "Duration";

}  // namespace zivora
