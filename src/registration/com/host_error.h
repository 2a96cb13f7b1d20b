#pragma once
// Errors as hosts receive them: the thread's error info (source "VMIO", the description) and
// the HRESULT 0x800A0000 | number, so a script's Err.Number is the library's number.
#include <windows.h>

// After windows.h, which they need.
#include <oaidl.h>

#include <cstdint>
#include <string>

namespace vmio::com {

HRESULT ErrorResult(int32_t number);

// Call inside a catch block: records the exception being handled as the thread's error info
// (and in exception, when given) and returns its HRESULT.
HRESULT ReportCurrentException(REFIID iid, EXCEPINFO* exception = nullptr);

}  // namespace vmio::com
