// Layer-3 names.
#pragma once

#include "platform/vex/Value.h"

#include <string>

namespace L3 {

// A VRF name, at most 100 bytes; the default VRF is "default".
class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;

  VrfName() = default;
  // Throws Vex::RangeError for more than maxLength bytes.
  explicit VrfName(std::string value) : value_(std::move(value)) {
    if (value_.size() > maxLength) throw Vex::RangeError("VrfName::value::bytes > VrfName::maxLength not allowed");
  }
  const std::string& value() const { return value_; }
  bool isDefault() const { return value_ == "default"; }
  auto operator<=>(const VrfName&) const = default;

  std::string vexRep() const { return value_; }
  static VrfName fromVexRep(const std::string& value) { return VrfName(value); }

 private:
  std::string value_ = "default";
};
VEX_SCALAR_VALUE(VrfName, "L3::VrfName", "value")
inline std::size_t hash_value(const VrfName& v) { return boost::hash<std::string>()(v.value()); }

}  // namespace L3
