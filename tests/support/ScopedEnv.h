#pragma once

#include <optional>
#include <string>

namespace zivora::test {

// Sets an environment variable for the object's life and puts back the old
// value (or its absence) afterwards.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> previous_;
};

}  // namespace zivora::test
