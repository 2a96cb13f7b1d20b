#include "vmio/variant.h"

#include <cmath>

#include "core/errors.h"
#include "core/numeric.h"

namespace vmio {

int32_t Variant::VarType() const {
  struct Code {
    int32_t operator()(std::monostate) const { return vtEmpty; }
    int32_t operator()(bool) const { return vtBool; }
    int32_t operator()(uint8_t) const { return vtUI1; }
    int32_t operator()(int16_t) const { return vtI2; }
    int32_t operator()(int32_t) const { return vtI4; }
    int32_t operator()(double) const { return vtR8; }
    int32_t operator()(const std::string&) const { return vtString; }
  };
  return std::visit(Code{}, value_);
}

bool Variant::AsBool() const {
  if (const bool* b = If<bool>()) return *b;
  Raise(13);
}

const std::string& Variant::AsString() const {
  if (const std::string* s = If<std::string>()) return *s;
  Raise(13);
}

double Variant::AsDouble() const {
  struct Num {
    double operator()(std::monostate) const { return 0; }  // empty converts to 0
    double operator()(bool b) const { return b ? -1 : 0; }
    double operator()(uint8_t v) const { return v; }
    double operator()(int16_t v) const { return v; }
    double operator()(int32_t v) const { return v; }
    double operator()(double v) const { return v; }
    double operator()(const std::string&) const { Raise(13); }
  };
  return std::visit(Num{}, value_);
}

int32_t Variant::AsInt32() const { return RoundToInt32(AsDouble()); }

}  // namespace vmio
