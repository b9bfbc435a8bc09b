# Every dependency comes from Debian's packages through pkg-config.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(CRYPTO REQUIRED IMPORTED_TARGET libcrypto)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(FMT REQUIRED IMPORTED_TARGET fmt)
pkg_check_modules(NLOHMANN REQUIRED IMPORTED_TARGET nlohmann_json)
pkg_check_modules(PANGOCAIRO REQUIRED IMPORTED_TARGET pangocairo cairo)
pkg_check_modules(SDL REQUIRED IMPORTED_TARGET sdl2 SDL2_image)
pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET gstreamer-1.0 gstreamer-app-1.0 gstreamer-video-1.0)
pkg_check_modules(SECRET REQUIRED IMPORTED_TARGET libsecret-1)
# libyuv ships no pkg-config file.
find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
add_library(libyuv::libyuv UNKNOWN IMPORTED)
set_target_properties(libyuv::libyuv PROPERTIES IMPORTED_LOCATION "${LIBYUV_LIBRARY}"
                                                INTERFACE_INCLUDE_DIRECTORIES "${LIBYUV_INCLUDE_DIR}")

set(ZIVORA_PRIVATE_DEPS
  PkgConfig::CURL PkgConfig::CRYPTO PkgConfig::SQLITE PkgConfig::FMT PkgConfig::NLOHMANN
  PkgConfig::PANGOCAIRO PkgConfig::SDL PkgConfig::GSTREAMER PkgConfig::SECRET
  libyuv::libyuv Threads::Threads)
# Requires.private of zivora.pc
set(ZIVORA_PC_REQUIRES "libcurl libcrypto sqlite3 fmt pangocairo cairo sdl2 SDL2_image gstreamer-1.0 gstreamer-app-1.0 gstreamer-video-1.0 libsecret-1")
# Libs.private of zivora.pc: what has no pkg-config file
set(ZIVORA_PC_LIBS_PRIVATE "-lyuv")
