#pragma once
// An automation variant: a value tagged with the automation type code hosts see.
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace vmio {

// Automation variant type codes (the subset this library exchanges).
enum VarTypeCode : int32_t {
  vtEmpty = 0,
  vtI2 = 2,  // 16-bit integer
  vtI4 = 3,  // 32-bit integer
  vtR8 = 5,  // double
  vtString = 8,
  vtBool = 11,
  vtUI1 = 17,  // byte
};

class Variant {
 public:
  Variant() = default;
  Variant(bool v) : value_(v) {}
  Variant(uint8_t v) : value_(v) {}
  Variant(int16_t v) : value_(v) {}
  Variant(int32_t v) : value_(v) {}
  Variant(double v) : value_(v) {}
  Variant(std::string v) : value_(std::move(v)) {}
  Variant(std::string_view v) : value_(std::string(v)) {}
  Variant(const char* v) : value_(std::string(v)) {}

  // The automation type code (vtEmpty, vtBool, ...).
  int32_t VarType() const;
  bool IsEmpty() const { return value_.index() == 0; }
  bool IsBool() const { return std::holds_alternative<bool>(value_); }
  bool IsString() const { return std::holds_alternative<std::string>(value_); }

  // Typed access; each raises automation error 13 (type mismatch) on another type.
  bool AsBool() const;
  const std::string& AsString() const;
  // Any numeric type (byte, 16/32-bit, double, Boolean as -1/0) as a double; 13 otherwise.
  double AsDouble() const;
  // Any numeric type converted as the automation run-time does (halves to even; 6 on overflow).
  int32_t AsInt32() const;

  template <class T>
  const T* If() const {
    return std::get_if<T>(&value_);
  }

  friend bool operator==(const Variant&, const Variant&) = default;

 private:
  std::variant<std::monostate, bool, uint8_t, int16_t, int32_t, double, std::string> value_;
};

}  // namespace vmio
