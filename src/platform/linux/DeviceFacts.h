#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace zivora::platform {

// What Linux says about the machine. Each answer is read on each call;
// readers throw std::runtime_error when the system does not answer.
class DeviceFacts {
 public:
  using Environment = std::function<const char*(const char*)>;

  // uname()'s machine field ("x86_64", "aarch64").
  static std::string machine();
  // "Linux " and the distribution's PRETTY_NAME (or NAME and VERSION_ID)
  // from `osRelease`; the kernel release when the file says nothing.
  static std::string osVersion(const std::filesystem::path& osRelease = "/etc/os-release");
  // The machine's user-visible name: its host name.
  static std::string hostName();
  // Physical memory in MiB.
  static std::int64_t ramMiB();
  // The language code of the first of LC_ALL, LC_MESSAGES, LANG that is
  // set ("de" from "de_DE.UTF-8"); "C" and "POSIX" are English.
  static std::string language(const Environment& environment);
  static std::string language();
};

}  // namespace zivora::platform
