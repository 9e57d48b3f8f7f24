// Differential fuzz target: ScanInt and ScanFloat must agree with the C library's sscanf on every
// input, in success, in the value's bits (sign of zero and NaN patterns included) and in leaving
// the value alone on failure; ScanFloatOrWindowsSpecial with ScanFloat wherever no '#' is
// written. Any disagreement aborts so that the fuzzer keeps the input.
#include "Parser/NumberScan.h"

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  // sscanf needs a terminator; a zero byte inside the input ends the text for both sides.
  const std::string terminated(text);

  constexpr uint32_t kFloatSentinel = 0x12345678u;
  float ourFloat = std::bit_cast<float>(kFloatSentinel);
  float theirFloat = ourFloat;
  const bool ourFloatOk = ScanFloat(text, &ourFloat);
  const bool theirFloatOk = std::sscanf(terminated.c_str(), "%f", &theirFloat) == 1;
  if (ourFloatOk != theirFloatOk ||
      std::bit_cast<uint32_t>(ourFloat) != std::bit_cast<uint32_t>(theirFloat)) {
    std::abort();
  }

  // The reading of -compat differs only for the Windows spellings, which all hold a '#'.
  float lenientFloat = std::bit_cast<float>(kFloatSentinel);
  const bool lenientOk = ScanFloatOrWindowsSpecial(text, &lenientFloat);
  if (text.find('#') == std::string_view::npos &&
      (lenientOk != ourFloatOk || std::bit_cast<uint32_t>(lenientFloat) != std::bit_cast<uint32_t>(ourFloat))) {
    std::abort();
  }

  constexpr int32_t kIntSentinel = 0x5a5a5a5a;
  int32_t ourInt = kIntSentinel;
  int theirInt = kIntSentinel;
  const bool ourIntOk = ScanInt(text, &ourInt);
  const bool theirIntOk = std::sscanf(terminated.c_str(), "%d", &theirInt) == 1;
  if (ourIntOk != theirIntOk || ourInt != theirInt) std::abort();
  return 0;
}
