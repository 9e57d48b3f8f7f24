// Number scanning that reproduces the C library's "%d" and "%f" conversions (glibc, C locale).
//
// glibc's scanf first collects characters by its own rules and then converts only what it
// collected with strtol / strtof. The collection rules matter where they differ from strto*:
//  - "%d" takes [sign] digits; the value is strtol's (64-bit, saturating) cut to its low 32 bits.
//  - "%f" takes "nan" (and nothing after it), "inf" or "infinity" (a started "infinity" that
//    breaks off fails the whole conversion), "0x" hex forms (a bare "0x" fails), or the decimal
//    form [sign] digits [. digits] [e [sign] digits], where a trailing "e" or "e+" is collected but
//    not converted.
// The decimal form is nearly every number in a scene file, so it goes to fast_float, which rounds
// exactly as strtof does; the rare forms are collected as glibc collects them and given to strtof.
#include "Parser/NumberScan.h"

#include <fast_float/fast_float.h>

#include <bit>
#include <cstdlib>
#include <string>
#include <system_error>

namespace {

// Single characters tested the way the C locale classifies them; ctype calls would consult the
// current locale and cost a call per character.
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'); }
char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c | 0x20) : c; }

// The scanning position over the text; reading past the end or at a zero byte gives '\0', which
// none of the rules accept, so a zero byte ends the text the same way as sscanf's terminator does.
struct Cursor {
  const char* p;
  const char* end;
  char Peek() const { return p != end ? *p : '\0'; }
  char PeekAt(size_t offset) const {
    return static_cast<size_t>(end - p) > offset ? p[offset] : '\0';
  }
};

void SkipSpace(Cursor& at) {
  while (at.p != at.end && IsSpace(*at.p)) ++at.p;
}

// Matches `word` case-insensitively at the cursor and moves past it.
bool TakeWord(Cursor& at, std::string_view word) {
  for (size_t i = 0; i < word.size(); ++i) {
    if (Lower(at.PeekAt(i)) != word[i]) return false;
  }
  at.p += word.size();
  return true;
}

// "0x..." after the optional sign: collects the characters glibc's scanf would hand to strtof
// (hex digits and one '.', then 'p' once a digit was seen, an optional sign right after 'p',
// decimal digits) and converts them. Hex digits stop at the 'p', so "0x1e+3" is 0x1e.
bool ScanHexFloat(Cursor at, const char* signStart, float* value) {
  const char* digitsStart = at.p + 2;  // past "0x"
  const char* q = digitsStart;
  bool gotDigit = false;
  bool gotDot = false;
  bool gotExponent = false;
  for (; q != at.end; ++q) {
    const char c = *q;
    if (IsDigit(c) || (!gotExponent && IsHexDigit(c))) {
      gotDigit = true;
    } else if (gotExponent && (c == '-' || c == '+') && Lower(q[-1]) == 'p') {
      // the exponent's sign
    } else if (gotDigit && !gotExponent && Lower(c) == 'p') {
      gotExponent = gotDot = true;
    } else if (!gotDot && c == '.') {
      gotDot = true;
    } else {
      break;
    }
  }
  if (q == digitsStart) return false;  // only "0x": glibc rejects it rather than reading 0

  // strtof needs a terminated string, and must not see past what scanf collected.
  const std::string collected(signStart, q);
  char* parsedEnd = nullptr;
  const float parsed = std::strtof(collected.c_str(), &parsedEnd);
  if (parsedEnd == collected.c_str()) return false;
  *value = parsed;
  return true;
}

}  // namespace

bool ScanInt(std::string_view text, int32_t* value) {
  Cursor at{text.data(), text.data() + text.size()};
  SkipSpace(at);
  const bool negative = at.Peek() == '-';
  if (negative || at.Peek() == '+') ++at.p;
  if (!IsDigit(at.Peek())) return false;

  // Magnitudes beyond 2^63 all saturate alike, so the accumulation stops growing there and never
  // wraps: below the threshold, magnitude * 10 + 9 still fits in 64 bits.
  constexpr uint64_t kSaturated = (uint64_t{1} << 63) + 1;
  constexpr uint64_t kGrowLimit = (uint64_t{1} << 63) / 10;
  uint64_t magnitude = 0;
  for (; at.p != at.end && IsDigit(*at.p); ++at.p) {
    const uint64_t digit = static_cast<uint64_t>(*at.p - '0');
    magnitude = magnitude <= kGrowLimit ? magnitude * 10 + digit : kSaturated;
  }

  // strtol's result on a 64-bit long: clamped to [INT64_MIN, INT64_MAX] ...
  constexpr uint64_t kMinMagnitude = uint64_t{1} << 63;
  uint64_t asLong;  // two's complement bits of the long
  if (negative) {
    asLong = magnitude >= kMinMagnitude ? kMinMagnitude : uint64_t{0} - magnitude;
  } else {
    asLong = magnitude >= kMinMagnitude ? kMinMagnitude - 1 : magnitude;
  }
  // ... of which the int receives the low 32 bits.
  *value = static_cast<int32_t>(static_cast<uint32_t>(asLong));
  return true;
}

bool ScanFloat(std::string_view text, float* value) {
  Cursor at{text.data(), text.data() + text.size()};
  SkipSpace(at);
  if (ScanShortDecimal(at.p, at.end, value)) return true;
  const char* signStart = at.p;
  const bool negative = at.Peek() == '-';
  if (negative || at.Peek() == '+') ++at.p;
  const char first = at.Peek();

  if (IsDigit(first) || first == '.') {
    if (first == '0' && Lower(at.PeekAt(1)) == 'x') return ScanHexFloat(at, signStart, value);
    // fast_float reads the same decimal grammar as strtof and fails on a lone '.'; the sign was
    // taken above because fast_float refuses '+'. Negating afterwards is exact, since rounding to
    // nearest is symmetric.
    float magnitude = 0.0f;
    const fast_float::from_chars_result result = fast_float::from_chars(at.p, at.end, magnitude);
    if (result.ec != std::errc() && result.ec != std::errc::result_out_of_range) return false;
    *value = negative ? -magnitude : magnitude;
    return true;
  }

  const uint32_t signBit = negative ? 0x80000000u : 0u;
  if (TakeWord(at, "nan")) {
    // glibc stops at "nan" and never reads a "(payload)", so the NaN is always strtof's default.
    *value = std::bit_cast<float>(0x7fc00000u | signBit);
    return true;
  }
  if (TakeWord(at, "inf")) {
    // Once an 'i' follows "inf", glibc is committed to "infinity" and fails if it breaks off.
    if (Lower(at.Peek()) == 'i' && !TakeWord(at, "inity")) return false;
    *value = std::bit_cast<float>(0x7f800000u | signBit);
    return true;
  }
  return false;
}

bool ScanFloatOrWindowsSpecial(std::string_view text, float* value) {
  // Most texts are plain numbers: anything that is not "1.#" after a sign goes straight on.
  const bool negative = !text.empty() && text.front() == '-';
  const std::string_view rest = text.substr(negative || (!text.empty() && text.front() == '+') ? 1 : 0);
  if (rest.size() < 4 || rest.compare(0, 3, "1.#") != 0) return ScanFloat(text, value);
  struct Spelling {
    std::string_view name;
    bool infinite;
  };
  static constexpr Spelling kSpellings[] = {
      {"QNAN", false}, {"SNAN", false}, {"IND", false}, {"INF", true}, {"QNB", false}, {"SNB", false},
  };
  const std::string_view special = rest.substr(3);
  for (const Spelling& spelling : kSpellings) {
    if (special.substr(0, spelling.name.size()) != spelling.name) continue;
    if (special.find_first_not_of('0', spelling.name.size()) != std::string_view::npos) break;
    const uint32_t signBit = negative ? 0x80000000u : 0u;
    *value = std::bit_cast<float>((spelling.infinite ? 0x7f800000u : 0x7fc00000u) | signBit);
    return true;
  }
  return ScanFloat(text, value);
}
