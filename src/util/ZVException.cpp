#include "util/ZVException.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace zivora {

namespace {

std::string demangle(const char* mangled) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  return status == 0 && readable ? std::string(readable.get()) : std::string(mangled);
}

}  // namespace

ZVException::ZVException(std::string name, std::string reason)
    : std::runtime_error(reason), name_(std::move(name)), reason_(std::move(reason)) {}

ZVException ZVException::describe(std::exception_ptr error) noexcept {
  try {
    try {
      if (error) std::rethrow_exception(error);
    } catch (const ZVException& e) {
      return e;
    } catch (const std::exception& e) {
      return ZVException(demangle(typeid(e).name()), e.what());
    } catch (...) {
    }
    return ZVException("UnknownException", "unknown");
  } catch (...) {
    // Building the description itself failed (out of memory).
    return ZVException("", "");
  }
}

}  // namespace zivora
