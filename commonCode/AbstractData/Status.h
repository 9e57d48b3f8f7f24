// Status values: signed 32-bit, HRESULT-style. Zero is success, negative is failure.
// Every failure in the system travels as one of these, never as an exception.
#pragma once

#include <cstdint>

using HRESULT = int32_t;

constexpr HRESULT S_OK = 0;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

constexpr bool Failed(HRESULT hr) { return hr < 0; }
constexpr bool Succeeded(HRESULT hr) { return hr >= 0; }

// The HRESULT form of a platform error code; code 0 means "no error" and gives success.
constexpr HRESULT HResultFromWin32(uint32_t code)
{
    return code == 0 ? S_OK : static_cast<HRESULT>(0x80070000u | (code & 0xFFFFu));
}
