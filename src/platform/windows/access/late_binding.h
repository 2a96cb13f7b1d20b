#pragma once
// Late-bound automation calls, as a scripting host makes them: objects created by programmatic
// name, members looked up by name at each call, arguments and answers as variants. A failure
// anywhere (class not registered, no such member, the call raising) is an HRESULT, never an
// exception.
#include <windows.h>

// After windows.h, which they need.
#include <oaidl.h>
#include <oleauto.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "platform/windows/core/wide_text.h"

namespace vmio {

// An interface pointer that releases its reference.
template <class Interface>
class ComRef {
 public:
  ComRef() = default;
  ComRef(const ComRef&) = delete;
  ComRef& operator=(const ComRef&) = delete;
  ComRef(ComRef&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  ComRef& operator=(ComRef&& other) noexcept {
    if (this != &other) {
      Reset();
      p_ = std::exchange(other.p_, nullptr);
    }
    return *this;
  }
  ~ComRef() { Reset(); }

  void Reset() {
    if (p_) p_->Release();
    p_ = nullptr;
  }
  Interface* Get() const { return p_; }
  Interface* operator->() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }
  // For calls that hand out a new reference.
  Interface** Put() {
    Reset();
    return &p_;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }

 private:
  Interface* p_ = nullptr;
};

// A variant that clears what it holds.
class OwnedVariant {
 public:
  OwnedVariant() { VariantInit(&v_); }
  OwnedVariant(const OwnedVariant&) = delete;
  OwnedVariant& operator=(const OwnedVariant&) = delete;
  ~OwnedVariant() { VariantClear(&v_); }

  VARIANT* Ptr() { return &v_; }
  const VARIANT& Value() const { return v_; }

 private:
  VARIANT v_;
};

// A string argument: a BSTR variant owning its text.
void SetText(VARIANT& v, const std::string& utf8);

// The object of that programmatic name, created in-process or by any server; nothing when the
// class is not registered or will not start.
ComRef<IDispatch> CreateObject(const wchar_t* progid);

// Calls member of object with args in call order (flags: DISPATCH_METHOD, DISPATCH_PROPERTYGET
// or DISPATCH_PROPERTYPUT, whose single argument is the value). result may be null.
HRESULT Invoke(IDispatch* object, const wchar_t* member, WORD flags, std::initializer_list<VARIANT*> args,
               VARIANT* result);

// Property get and put with the common answer types; nothing when the call fails or the answer
// does not convert.
std::optional<std::string> GetText(IDispatch* object, const wchar_t* property);
std::optional<bool> GetBool(IDispatch* object, const wchar_t* property);
std::optional<int32_t> GetInt(IDispatch* object, const wchar_t* property);
HRESULT PutText(IDispatch* object, const wchar_t* property, const std::string& value);

// The value as text, number or Boolean (automation's own conversions); nothing when it has none.
std::optional<std::string> VariantText(const VARIANT& value);

}  // namespace vmio
