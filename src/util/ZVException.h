#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace zivora {

// The one named runtime failure of the SDK (an invalid colour value, a
// redirect without a Location header ...): a name and a reason, as the
// analytics exception records carry them.
class ZVException : public std::runtime_error {
 public:
  ZVException(std::string name, std::string reason);

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }

  // Describes whatever `error` holds as a name and a reason: a ZVException
  // as itself, a std::exception by its type and what(), anything else as
  // "UnknownException".
  static ZVException describe(std::exception_ptr error) noexcept;

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace zivora
