#pragma once
/// @file
/// Objects a host creates by name, and their members reached by name.
///
/// Every class describes its public members once, in a member table: name, kind, dispatch id,
/// parameter and result types, and the function that calls it. Late-bound callers (Object::Call
/// and Object::Put, the shell's `call`, the COM layer's IDispatch) all go through that table,
/// so a member behaves the same whichever way a host reaches it.
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "vmio/export.h"
#include "vmio/variant.h"

namespace vmio {

class Object;

/// What a member table entry is.
enum class MemberKind {
  kMethod,       ///< called with arguments, may return a value
  kPropertyGet,  ///< read, with the property's indexes as arguments
  kPropertyPut,  ///< assigned: the property's indexes, then the new value
};

/// One entry of a member table.
struct Member {
  static constexpr size_t kMaxParams = 4;  ///< the most parameters a member takes
  /// Calls the member on an object of its class.
  using Invoker = Variant (*)(Object& self, std::span<const Variant> args);

  std::string_view name;                   ///< the automation name ("PortValue")
  MemberKind kind;                         ///< method, property get or put
  int32_t dispid;                          ///< the member's dispatch id in the type library (get and put share one)
  int32_t result;                          ///< automation type code of the result; vtEmpty for none
  std::array<int32_t, kMaxParams> params;  ///< automation type codes; vtVariant takes any
  size_t param_count;                      ///< how many of params are used
  Invoker invoke;                          ///< args already counted: exactly param_count of them
};

/// A class's members, chained to those of the interface or class it extends.
struct VMIO_API MemberTable {
  std::span<const Member> members;    ///< this class's own entries
  const MemberTable* base = nullptr;  ///< the table of what it extends, if anything

  /// The member of that name (ASCII case-insensitive, as automation names are) and kind, looked
  /// for here first, then in the base; nullptr when there is none.
  const Member* Find(std::string_view name, MemberKind kind) const;
  /// The member of that dispatch id and kind, here first, then in the base; nullptr when none.
  const Member* Find(int32_t dispid, MemberKind kind) const;
};

/// Any object the library makes: its members are reached by name through its member table.
///
/// An object belongs to the thread that created it, as an automation object belongs to its
/// apartment: every call must come from that thread. The library holds no locks, so a call
/// from another thread is refused (kWrongThread) rather than left to race; late-bound calls,
/// the C API and Python check it on every call. A host that wants several threads gives each
/// its own objects.
class VMIO_API Object {
 public:
  /// Made on, and from then on bound to, the calling thread.
  Object();
  virtual ~Object() = default;
  /// The class's member table (empty for a plain Object).
  virtual const MemberTable& Members() const;

  /// Raises kWrongThread unless called on the thread that created the object.
  void RequireOwnThread() const;

  /// Calls a method or reads a property by name. Raises 438 when the object has no such member
  /// and 450 for the wrong number of arguments; the member's own errors pass through.
  Variant Call(std::string_view member, std::span<const Variant> args = {});
  /// Assigns a property by name: args are the property's indexes followed by the new value.
  void Put(std::string_view member, std::span<const Variant> args);
  /// The same through a table entry already found (by dispatch id, say).
  Variant Invoke(const Member& member, std::span<const Variant> args);

 private:
  const void* owner_;  // the creating thread's token (an address unique among live threads)
};

// How MemberOf builds table entries from member functions (left out of the reference).
namespace member_detail {

// The automation type code of a parameter or result type.
template <class T>
constexpr int32_t TypeCode() {
  if constexpr (std::is_void_v<T>) {
    return vtEmpty;
  } else if constexpr (std::is_same_v<T, bool>) {
    return vtBool;
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return vtI2;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return vtI4;
  } else if constexpr (std::is_same_v<T, double>) {
    return vtR8;
  } else if constexpr (std::is_same_v<T, std::string>) {
    return vtString;
  } else if constexpr (std::is_same_v<T, Variant>) {
    return vtVariant;
  } else {
    static_assert(
        requires { typename T::element_type; }, "no automation type for this type");
    return vtDispatch;  // a shared_ptr to an object
  }
}

// An argument converted to the parameter's type; 13 when it cannot be.
template <class T>
T Argument(const Variant& v) {
  if constexpr (std::is_same_v<T, Variant>) {
    return v;
  } else if constexpr (std::is_same_v<T, std::string>) {
    return v.AsString();
  } else if constexpr (std::is_same_v<T, bool>) {
    return v.AsBool();
  } else if constexpr (std::is_same_v<T, double>) {
    return v.AsDouble();
  } else {
    static_assert(std::is_same_v<T, int32_t>, "no automation conversion for this parameter type");
    return v.AsInt32();
  }
}

template <class R>
Variant Result(R&& r) {
  using T = std::remove_cvref_t<R>;
  if constexpr (std::is_same_v<T, Variant>) {
    return std::forward<R>(r);
  } else if constexpr (requires { typename T::element_type; }) {
    return Variant(std::static_pointer_cast<Object>(std::forward<R>(r)));
  } else {
    return Variant(std::forward<R>(r));
  }
}

template <auto Fn>
struct Traits;
template <class C, class R, class... A, R (C::*Fn)(A...)>
struct Traits<Fn> {
  using Class = C;
  using Return = R;
  using Params = std::tuple<std::remove_cvref_t<A>...>;
};
template <class C, class R, class... A, R (C::*Fn)(A...) const>
struct Traits<Fn> {
  using Class = C;
  using Return = R;
  using Params = std::tuple<std::remove_cvref_t<A>...>;
};

template <auto Fn, class C, class R, class... A, size_t... I>
Variant Call(Object& self, std::span<const Variant> args, std::index_sequence<I...>) {
  auto& object = dynamic_cast<C&>(self);
  if constexpr (std::is_void_v<R>) {
    (object.*Fn)(Argument<A>(args[I])...);
    return Variant();
  } else {
    return Result((object.*Fn)(Argument<A>(args[I])...));
  }
}

template <auto Fn, class Tuple>
struct Binder;
template <auto Fn, class... A>
struct Binder<Fn, std::tuple<A...>> {
  using T = Traits<Fn>;
  static Variant Invoke(Object& self, std::span<const Variant> args) {
    return Call<Fn, typename T::Class, typename T::Return, A...>(self, args, std::index_sequence_for<A...>{});
  }
  static constexpr std::array<int32_t, Member::kMaxParams> kParams = [] {
    std::array<int32_t, Member::kMaxParams> codes{};
    size_t i = 0;
    ((codes[i++] = TypeCode<A>()), ...);
    return codes;
  }();
  static_assert(sizeof...(A) <= Member::kMaxParams);
};

}  // namespace member_detail

/// A member table entry for a member function, so a table states only names and ids:
/// `MemberOf<&RS232::AddCommand>("AddCommand", MemberKind::kMethod, 101)`. The parameter and
/// result type codes and the function that converts the arguments and calls it come from the
/// function's own type.
template <auto Fn>
constexpr Member MemberOf(std::string_view name, MemberKind kind, int32_t dispid) {
  using T = member_detail::Traits<Fn>;
  using B = member_detail::Binder<Fn, typename T::Params>;
  return Member{name,       kind,
                dispid,     member_detail::TypeCode<std::remove_cvref_t<typename T::Return>>(),
                B::kParams, std::tuple_size_v<typename T::Params>,
                &B::Invoke};
}

}  // namespace vmio
