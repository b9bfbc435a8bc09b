#include "support/ScopedEnv.h"

#include <cstdlib>

namespace zivora::test {

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : name_(name) {
  if (const char* old = std::getenv(name)) previous_ = old;
  ::setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  if (previous_) {
    ::setenv(name_, previous_->c_str(), 1);
  } else {
    ::unsetenv(name_);
  }
}

}  // namespace zivora::test
