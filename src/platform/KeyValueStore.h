#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zivora::platform {

// A persistent store of JSON values by suite and key. Safe to call from any
// thread; a failed operation answers empty or false and is logged.
class KeyValueStore {
 public:
  virtual ~KeyValueStore() = default;
  virtual std::optional<nlohmann::json> read(std::string_view suite,
                                             std::string_view key) noexcept = 0;
  virtual bool write(std::string_view suite, std::string_view key,
                     const nlohmann::json& value) noexcept = 0;
  virtual bool remove(std::string_view suite, std::string_view key) noexcept = 0;
  // Every key of `suite` with its value.
  virtual std::vector<std::pair<std::string, nlohmann::json>> entries(
      std::string_view suite) noexcept = 0;
};

}  // namespace zivora::platform
