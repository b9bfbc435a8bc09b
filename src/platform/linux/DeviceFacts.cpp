#include "platform/linux/DeviceFacts.h"

#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>

namespace zivora::platform {

namespace {

utsname systemName() {
  utsname name{};
  if (::uname(&name) != 0) throw std::runtime_error("uname failed");
  return name;
}

// os-release values may be quoted; the format's escapes are rare enough in
// names that dropping backslashes is all the unquoting needed.
std::string unquote(std::string value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front())
    value = value.substr(1, value.size() - 2);
  std::string plain;
  for (char c : value)
    if (c != '\\') plain.push_back(c);
  return plain;
}

std::map<std::string, std::string> readOsRelease(const std::filesystem::path& path) {
  std::map<std::string, std::string> fields;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    auto equals = line.find('=');
    if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
    fields[line.substr(0, equals)] = unquote(line.substr(equals + 1));
  }
  return fields;
}

}  // namespace

std::string DeviceFacts::machine() { return systemName().machine; }

std::string DeviceFacts::hostName() { return systemName().nodename; }

std::string DeviceFacts::osVersion(const std::filesystem::path& osRelease) {
  auto fields = readOsRelease(osRelease);
  if (auto pretty = fields["PRETTY_NAME"]; !pretty.empty()) return "Linux " + pretty;
  auto name = fields["NAME"];
  auto version = fields["VERSION_ID"];
  if (!name.empty()) return "Linux " + name + (version.empty() ? "" : " " + version);
  return std::string("Linux ") + systemName().release;
}

std::int64_t DeviceFacts::ramMiB() {
  struct sysinfo info {};
  if (::sysinfo(&info) != 0) throw std::runtime_error("sysinfo failed");
  auto bytes = static_cast<std::uint64_t>(info.totalram) * info.mem_unit;
  return static_cast<std::int64_t>(bytes >> 20);
}

std::string DeviceFacts::language() {
  return language([](const char* name) -> const char* { return std::getenv(name); });
}

std::string DeviceFacts::language(const Environment& environment) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = environment(variable);
    if (!value || !*value) continue;
    std::string locale = value;
    auto end = locale.find_first_of("_.@");
    std::string code = locale.substr(0, end);
    if (code.empty() || code == "C" || code == "POSIX") return "en";
    return code;
  }
  return "en";
}

}  // namespace zivora::platform
