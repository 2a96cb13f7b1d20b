#pragma once
// Values as text: the typed form scripts exchange with `vmio shell` ("i4:3", "str:a\tb"), and
// the plain form the one-shot commands show people ("true", "Boolean").
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "escape_text.h"
#include "shell_syntax.h"
#include "vmio/variant.h"

namespace vmio::cli {

// "empty", "bool:true", "u1:7", "i2:-3", "i4:42", "r8:0.1" (the shortest text that reads back
// to the same double), "str:ESCAPED".
std::string FormatTypedValue(const Variant& value);
// A value as written on a shell line, as a Variant.
Variant ToVariant(TypedValue value);
// The inverse; nothing when the text is malformed or a number is out of its type's range.
std::optional<Variant> ParseTypedValue(std::string_view text);

// For people: "true", "42", "0.5", the (escaped) text, "(empty)".
std::string DisplayValue(const Variant& value);
// "input", "output", "bidirectional", or the number.
std::string DirectionName(int32_t direction);
// The automation name of a variant type code ("Boolean", "String"), or the number.
std::string TypeName(int32_t type);

}  // namespace vmio::cli
