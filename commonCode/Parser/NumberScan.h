// Number scanning with exactly the C library's rules for the readers' formats:
//   ScanInt   == (sscanf(text, "%d", &value) == 1)   (also what "%d:" yields as its item count)
//   ScanFloat == (sscanf(text, "%f", &value) == 1)   (float32)
// Leading white space is skipped, a sign is taken, and the longest prefix that the C library
// would take is converted: "30.5" gives 30, "1.5abc" gives 1.5, "-1.#IND0" gives -1, "x" fails.
// The text ends at its first zero byte or at the end of the view. On failure `value` is untouched.
// Both are thread-safe and allocate nothing for decimal numbers; only the rare hexadecimal "%f"
// form goes through strtof, which reads '.' as the decimal point in the C locale the tool runs in.
#pragma once

#include <cstdint>
#include <string_view>

bool ScanInt(std::string_view text, int32_t* value);
bool ScanFloat(std::string_view text, float* value);

// ScanFloat, and also the spellings of not-a-number and infinity that the Windows runtime prints
// and "%f" reads only in part (it takes "1.#QNAN" as 1): a whole text of [sign] "1.#" followed by
// QNAN, SNAN, IND or INF (or QNB and SNB, which "%.4f" prints for QNAN and SNAN), then nothing
// but zeros, in the upper case the runtime prints. Those give infinity or a quiet NaN with the
// text's sign; every other text gives exactly what ScanFloat gives. The C spellings ("nan",
// "-nan(ind)", "inf", "infinity", any case) are ScanFloat's own.
bool ScanFloatOrWindowsSpecial(std::string_view text, float* value);
