#include "vmio/variant.h"

#include <algorithm>
#include <cmath>

#include "core/errors.h"
#include "core/numeric.h"

namespace vmio {

Variant Variant::Array(int32_t element_type, std::vector<Variant> elements) {
  Variant v;
  v.value_ = ArrayValue{element_type, std::make_shared<const std::vector<Variant>>(std::move(elements))};
  return v;
}

int32_t Variant::VarType() const {
  struct Code {
    int32_t operator()(std::monostate) const { return vtEmpty; }
    int32_t operator()(bool) const { return vtBool; }
    int32_t operator()(uint8_t) const { return vtUI1; }
    int32_t operator()(int16_t) const { return vtI2; }
    int32_t operator()(int32_t) const { return vtI4; }
    int32_t operator()(double) const { return vtR8; }
    int32_t operator()(const std::string&) const { return vtString; }
    int32_t operator()(const std::shared_ptr<Object>&) const { return vtDispatch; }
    int32_t operator()(const ArrayValue& a) const { return vtArray | a.element_type; }
  };
  return std::visit(Code{}, value_);
}

bool Variant::IsNumber() const {
  return std::holds_alternative<uint8_t>(value_) || std::holds_alternative<int16_t>(value_) ||
         std::holds_alternative<int32_t>(value_) || std::holds_alternative<double>(value_);
}

bool Variant::AsBool() const {
  if (const bool* b = std::get_if<bool>(&value_)) return *b;
  Raise(kTypeMismatch);
}

const std::string& Variant::AsString() const {
  if (const std::string* s = std::get_if<std::string>(&value_)) return *s;
  Raise(kTypeMismatch);
}

double Variant::AsDouble() const {
  struct Num {
    double operator()(std::monostate) const { return 0; }  // empty converts to 0
    double operator()(bool b) const { return b ? -1 : 0; }
    double operator()(uint8_t v) const { return v; }
    double operator()(int16_t v) const { return v; }
    double operator()(int32_t v) const { return v; }
    double operator()(double v) const { return v; }
    double operator()(const std::string&) const { Raise(kTypeMismatch); }
    double operator()(const std::shared_ptr<Object>&) const { Raise(kTypeMismatch); }
    double operator()(const ArrayValue&) const { Raise(kTypeMismatch); }
  };
  return std::visit(Num{}, value_);
}

int32_t Variant::AsInt32() const { return RoundToInt32(AsDouble()); }

const std::shared_ptr<Object>& Variant::AsObject() const {
  if (const auto* o = std::get_if<std::shared_ptr<Object>>(&value_)) return *o;
  Raise(kTypeMismatch);
}

std::span<const Variant> Variant::AsArray() const {
  if (const auto* a = std::get_if<ArrayValue>(&value_)) return *a->elements;
  Raise(kTypeMismatch);
}

bool Variant::ArrayValue::operator==(const ArrayValue& other) const {
  return element_type == other.element_type && std::ranges::equal(*elements, *other.elements);
}

bool operator==(const Variant& a, const Variant& b) { return a.value_ == b.value_; }

}  // namespace vmio
