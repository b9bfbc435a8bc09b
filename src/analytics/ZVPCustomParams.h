#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace zivora {

// The typed, named parameters of one analytics record: the SDK's fixed
// "bo_" fields and the host's own. Integers and booleans share one map
// (booleans as 0 and 1). Putting a name again replaces its value; putting
// a nil text removes it. Owned by one thread at a time.
class ZVPCustomParams {
 public:
  void put(const std::string& name, std::int32_t valueInt);
  void put(const std::string& name, std::int64_t valueLong);
  void put(const std::string& name, bool valueBool);
  void put(const std::string& name, double valueDouble);
  // Nil removes the name.
  void put(const std::string& name, std::optional<std::string> valueString);
  // A literal is text, not a boolean.
  void put(const std::string& name, const char* valueString);

  // 0, 0, 0.0, nil and false when absent.
  std::int32_t getInt(const std::string& name) const;
  std::int64_t getLong(const std::string& name) const;
  double getDouble(const std::string& name) const;
  std::optional<std::string> getString(const std::string& name) const;
  bool getBool(const std::string& name) const;

  bool containsInt(const std::string& name) const { return mapLong_.count(name) > 0; }
  bool containsLong(const std::string& name) const { return mapLong_.count(name) > 0; }
  bool containsBool(const std::string& name) const { return mapLong_.count(name) > 0; }
  bool containsDouble(const std::string& name) const { return mapDouble_.count(name) > 0; }
  bool containsString(const std::string& name) const { return mapString_.count(name) > 0; }

  std::size_t size() const { return mapDouble_.size() + mapString_.size() + mapLong_.size(); }

  // The queue line: "p1name=…&p1type=…&p1value=…&p2name=…", strings first,
  // then integers, then doubles. Nil for an empty set.
  std::optional<std::string> toStr() const;

 private:
  std::map<std::string, double> mapDouble_;
  std::map<std::string, std::string> mapString_;
  std::map<std::string, std::int64_t> mapLong_;
};

}  // namespace zivora
