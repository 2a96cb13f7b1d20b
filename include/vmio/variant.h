#pragma once
/// @file
/// An automation variant: a value tagged with the automation type code hosts see.
#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "vmio/export.h"

namespace vmio {

class Object;

/// Automation variant type codes (the subset this library exchanges).
enum VarTypeCode : int32_t {
  vtEmpty = 0,       ///< no value
  vtI2 = 2,          ///< 16-bit integer
  vtI4 = 3,          ///< 32-bit integer
  vtR8 = 5,          ///< double
  vtString = 8,      ///< text (UTF-8)
  vtDispatch = 9,    ///< an object reference
  vtBool = 11,       ///< Boolean
  vtVariant = 12,    ///< any type: an array element or parameter type, never a value's own type
  vtUI1 = 17,        ///< byte
  vtArray = 0x2000,  ///< combined with the element type: vtArray | vtString
};

/// A value tagged with the automation type code hosts see: what ports and members exchange.
///
/// Constructors take exactly the types a variant holds: a bool makes a Boolean, an int32_t a
/// 32-bit integer, text a string. Other arithmetic types and pointers (other than C strings) do
/// not compile, so no unsigned value or pointer turns silently into a Boolean.
class VMIO_API Variant {
 public:
  /// The empty value (vtEmpty).
  Variant() = default;
  /// A Boolean, byte, 16- or 32-bit integer or double: exactly that type, nothing converted to it.
  ///@{
  template <std::same_as<bool> T>
  Variant(T v) : value_(v) {}
  template <std::same_as<uint8_t> T>
  Variant(T v) : value_(v) {}
  template <std::same_as<int16_t> T>
  Variant(T v) : value_(v) {}
  template <std::same_as<int32_t> T>
  Variant(T v) : value_(v) {}
  template <std::same_as<double> T>
  Variant(T v) : value_(v) {}
  ///@}
  /// A string (vtString).
  ///@{
  Variant(std::string v) : value_(std::move(v)) {}
  Variant(std::string_view v) : value_(std::string(v)) {}
  Variant(const char* v) : value_(std::string(v)) {}
  ///@}
  /// An object reference (type 9); a null pointer is the reference to nothing.
  explicit Variant(std::shared_ptr<Object> v) : value_(std::move(v)) {}

  /// A one-dimensional array, lower bound 0, of elements of one type (vtString, vtDispatch, or
  /// vtVariant for mixed elements).
  static Variant Array(int32_t element_type, std::vector<Variant> elements);

  /// The automation type code (vtEmpty, vtBool, vtArray | vtString, ...).
  int32_t VarType() const;
  /// Whether it holds nothing (vtEmpty).
  bool IsEmpty() const { return value_.index() == 0; }
  /// Whether it holds a Boolean.
  bool IsBool() const { return std::holds_alternative<bool>(value_); }
  /// Whether it holds a string.
  bool IsString() const { return std::holds_alternative<std::string>(value_); }
  /// Whether it holds an object reference (perhaps to nothing).
  bool IsObject() const { return std::holds_alternative<std::shared_ptr<Object>>(value_); }
  /// Whether it holds an array.
  bool IsArray() const { return std::holds_alternative<ArrayValue>(value_); }
  /// True for byte, 16/32-bit integers and doubles (not Booleans).
  bool IsNumber() const;

  /// Typed access; each raises automation error 13 (type mismatch) on another type.
  ///@{
  bool AsBool() const;
  const std::string& AsString() const;
  ///@}
  /// Any numeric type (byte, 16/32-bit, double, Boolean as -1/0, empty as 0) as a double.
  double AsDouble() const;
  /// Any numeric type converted as the automation run-time does (halves to even; 6 on overflow).
  int32_t AsInt32() const;
  /// The object reference; raises 13 on another type.
  const std::shared_ptr<Object>& AsObject() const;
  /// The elements of an array.
  std::span<const Variant> AsArray() const;

  /// Equal when of the same type and value (the same object, for references); arrays compare by
  /// element.
  friend bool operator==(const Variant& a, const Variant& b);

 private:
  struct ArrayValue {
    int32_t element_type;
    std::shared_ptr<const std::vector<Variant>> elements;  // shared: arrays are values, never changed
    bool operator==(const ArrayValue& other) const;        // by element
  };

  std::variant<std::monostate, bool, uint8_t, int16_t, int32_t, double, std::string, std::shared_ptr<Object>,
               ArrayValue>
      value_;
};

}  // namespace vmio
