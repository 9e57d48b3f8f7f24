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

// significand / 10^fraction correctly rounded to float, for a significand of at most 2^24 and a
// fraction of 0 to 7 digits, with one multiplication: the product with the double nearest 10^-k
// is within 2^-51.9 of the quotient, and no such quotient lies within 2^-48.2 of a point halfway
// between two floats (nor on one), so both round to the same float (checked for every
// significand in the tests).
inline float ShortDecimalValue(uint32_t significand, int fraction)
{
    static constexpr double kInverses[] = {1e0, 1e-1, 1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-7};
    return static_cast<float>(static_cast<double>(significand) * kInverses[fraction]);
}

// The short decimals that scene files are made of, quickly: [sign] digits [. digits] at the start
// of [p, end) (no leading white space), with a significand of at most 2^24 and at most 10 digits
// after the point, followed by the end or by a character other than e, E, x or X. The significand
// and the power of ten are then exact floats, so their quotient is correctly rounded: what
// ScanFloat gives. Answers where the number ends, or null, with `value` untouched, for every
// other text (ScanFloat takes those). `end` may be null for a text that a zero byte ends.
inline const char* ScanShortDecimal(const char* p, const char* end, float* value)
{
    static constexpr float kPowers[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
    const bool negative = p != end && *p == '-';
    if (p != end && (*p == '-' || *p == '+'))
        ++p;
    uint64_t significand = 0;
    int digits = 0;
    int fraction = 0;
    for (; p != end && static_cast<unsigned char>(*p - '0') < 10; ++p, ++digits)
        significand = significand * 10 + static_cast<unsigned char>(*p - '0');
    if (p != end && *p == '.') {
        for (++p; p != end && static_cast<unsigned char>(*p - '0') < 10; ++p, ++fraction)
            significand = significand * 10 + static_cast<unsigned char>(*p - '0');
    }
    // Long digit runs leave the quick path before the significand could wrap.
    if (digits + fraction == 0 || digits + fraction > 18 || fraction > 10 || significand > (uint64_t{1} << 24))
        return nullptr;
    if (p != end && ((*p | 0x20) == 'e' || (*p | 0x20) == 'x'))
        return nullptr;
    const float magnitude = fraction <= 7 ? ShortDecimalValue(static_cast<uint32_t>(significand), fraction)
                                          : static_cast<float>(significand) / kPowers[fraction];
    *value = negative ? -magnitude : magnitude;
    return p;
}

// ScanFloat, and also the spellings of not-a-number and infinity that the Windows runtime prints
// and "%f" reads only in part (it takes "1.#QNAN" as 1): a whole text of [sign] "1.#" followed by
// QNAN, SNAN, IND or INF (or QNB and SNB, which "%.4f" prints for QNAN and SNAN), then nothing
// but zeros, in the upper case the runtime prints. Those give infinity or a quiet NaN with the
// text's sign; every other text gives exactly what ScanFloat gives. The C spellings ("nan",
// "-nan(ind)", "inf", "infinity", any case) are ScanFloat's own.
bool ScanFloatOrWindowsSpecial(std::string_view text, float* value);
