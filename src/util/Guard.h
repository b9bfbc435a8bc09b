#pragma once

#include <type_traits>
#include <utility>

namespace zivora {

// How a caught exception is reported.
enum class GuardReport {
  // To the analytics facade, with the class and operation names (ad side).
  Analytics,
  // As "Backoffice [class][method] Error!" in the system log: the analytics
  // classes never report to themselves.
  Backoffice,
};

namespace detail {
// Reports the exception being handled. Never throws.
void reportCaught(const char* className, const char* method, GuardReport report) noexcept;
}  // namespace detail

// The one exception guard. Runs `body`; if it throws, reports the exception
// and returns `neutral`:
//   return guarded("ZVConfiguration", "appId", std::optional<std::string>(), [&] { ... });
template <class R, class Body>
R guarded(const char* className, const char* method, R neutral, Body&& body,
          GuardReport report = GuardReport::Analytics) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    detail::reportCaught(className, method, report);
    return neutral;
  }
}

// The same for operations that return nothing.
template <class Body>
void guarded(const char* className, const char* method, Body&& body,
             GuardReport report = GuardReport::Analytics) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    detail::reportCaught(className, method, report);
  }
}

}  // namespace zivora
