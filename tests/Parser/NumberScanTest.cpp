// ScanInt and ScanFloat must agree with the C library's sscanf for "%d", "%d:" and "%f": same
// success and same bits (sign of zero, NaN patterns), and an untouched value on failure; so must
// LineCursor's one-pass reading of a word's number.
#include "Parser/NumberScan.h"
#include "Parser/PlainLines.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr uint32_t kSentinel = 0x12345678u;

struct Outcome { bool ok; uint32_t bits; bool operator==(const Outcome&) const = default; };

std::string Show(std::string_view text) {
  std::string shown = "\"";
  for (const unsigned char c : text) {
    char escaped[8] = {static_cast<char>(c)};
    if (c < 0x20 || c >= 0x7f || c == '\\') std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
    shown += escaped;
  }
  return shown + '"';
}

// LineCursor's numbers, read with the word in one pass: ScanFloat's and ScanInt's on that word.
std::string CursorDisagreement(std::string_view text) {
  static const auto classes = [] {
    std::array<uint8_t, 256> table{};
    for (int c = 0; c < 256; ++c)
      table[c] = c == '\n' ? kLineEnd
                 : c == ' ' || c == '\t' || c == '\r' ? kLineBlank
                 : c == 0 || std::string_view("\"(){}").find(static_cast<char>(c)) != std::string_view::npos ? kLineStop
                 : kLineWord;
    return table;
  }();
  std::string padded(text);
  padded += '\n';
  padded.append(16, '\0');
  const auto cursor = [&] { return LineCursor(classes.data(), 4095, padded.data()); };
  const std::string_view word = cursor().Word();
  float ourFloat = 0, wordFloat = 0;
  const bool floatOk = cursor().Float(&ourFloat);
  if (floatOk != (!word.empty() && ScanFloat(word, &wordFloat)) ||
      (floatOk && std::bit_cast<uint32_t>(ourFloat) != std::bit_cast<uint32_t>(wordFloat)))
    return Show(text) + " LineCursor::Float";
  int32_t ourInt = 0, wordInt = 0;
  const bool intOk = cursor().Int(&ourInt);
  if (intOk != (!word.empty() && ScanInt(word, &wordInt)) || (intOk && ourInt != wordInt))
    return Show(text) + " LineCursor::Int";
  return "";
}

// sscanf stops at the terminator std::string supplies; the scanners get a buffer of exactly the
// text's size, so that the sanitizer build catches reads past the view.
std::string Disagreement(std::string_view text) {
  const std::string terminated(text);
  const std::vector<char> exact(text.begin(), text.end());
  const std::string_view view(exact.data(), exact.size());
  float ourFloat = std::bit_cast<float>(kSentinel), theirFloat = ourFloat;
  const Outcome ours{ScanFloat(view, &ourFloat), std::bit_cast<uint32_t>(ourFloat)};
  const Outcome theirs{std::sscanf(terminated.c_str(), "%f", &theirFloat) == 1,
                       std::bit_cast<uint32_t>(theirFloat)};
  char line[160];
  if (ours != theirs) {
    std::snprintf(line, sizeof line, " %%f: ours %d/%08x, sscanf %d/%08x", ours.ok, ours.bits, theirs.ok,
                  theirs.bits);
    return Show(text) + line;
  }
  // The reading of -compat departs only for the Windows spellings, which all hold a '#'.
  float lenientFloat = std::bit_cast<float>(kSentinel);
  const Outcome lenient{ScanFloatOrWindowsSpecial(view, &lenientFloat), std::bit_cast<uint32_t>(lenientFloat)};
  if (text.find('#') == std::string_view::npos && lenient != ours) return Show(text) + " differs with -compat";
  int32_t ourInt = static_cast<int32_t>(kSentinel);
  const bool ourOk = ScanInt(view, &ourInt);
  for (const char* format : {"%d", "%d:"}) {
    int theirInt = static_cast<int32_t>(kSentinel);
    const bool theirOk = std::sscanf(terminated.c_str(), format, &theirInt) == 1;
    if (ourOk != theirOk || ourInt != theirInt) {
      std::snprintf(line, sizeof line, " %s: ours %d/%d, sscanf %d/%d", format, ourOk, ourInt, theirOk, theirInt);
      return Show(text) + line;
    }
  }
  return CursorDisagreement(text);
}

// Inputs where the collection rules of scanf, strto* and fast_float part ways.
const char* const kAwkward[] = {
    // partial reads
    "30.5", "1.5abc", "-1.#IND0", "1.#QNAN", "1e", "1E", "1e+", "1e-", "1e+x", ".5", "-.5", "5.", "1.e5", "1.5.3",
    "1e5.3", "1e5e3", "1e+-5", "0e", "0ex", "00x1p3", "12:3", "7,5",
    // nothing to read
    "x", "", "-", "+", ".", "-.", "+.", ".e5", "e5", "E5", "- 5", "+-5", "-+5", "#", "--1",
    // white space, and bytes that the C locale does not count as space
    " 7", "\t\n\v\f\r7", "  -3.25", " \xa0 7", "\x85 7", "\xa0", "   ",
    // inf and nan fragments
    "inf", "INF", "Inf", "-inf", "+inf", "infx", "infi", "infin", "infinit", "infinity", "Infinity", "INFINITY",
    "-infinity", "infinityx", "infinitx", "in", "i", "-i", "na", "n", "nan", "NaN", "-nan", "+nan", "nanx", "nan(12)",
    "nan()", "-nan(0x1)", "nAn", "nana",
    // hexadecimal
    "0x", "0X", "-0x", "+0x", "0x1p3", "0X1P-2", "0x10", "-0x10", "0x1.8p1", "0x.8p1", "0x.", "0x.p1", "0xp3", "0x1p",
    "0x1p+", "0x1p-", "0x1e3", "0x1e+3", "0xg", "0x1p3p4", "0x1.8.1", "0x1p1a", "0xffffffffffffffffffffp0", "0x1p128",
    "0x1p-149", "0x1p-150", "0x1.000001p0", "0x1.0000011p0", "0x1.fffffffp127", "0x0.000002p-126",
    // range of float: largest, overflow, denormals, underflow to zero
    "3.4028235e38", "3.40282346e38", "3.4028236e38", "3.40282357e38", "-3.4028236e38", "1e39", "1e99",
    "1e99999999999", "-1e99999999999", "1e-38", "1.17549435e-38", "1e-45", "1.4e-45", "7e-46", "7.0064923e-46",
    "7.0064924e-46", "1e-50", "1e-99999999999", "-1e-50",
    // signed zeros
    "0", "-0", "+0", "-0.0", "-.0", "-0e5", "0.0000", "-0.0000",
    // many digits, and exact ties between adjacent floats
    "16777217", "16777217.000000000000000000000000000001", "16777216.999999999999999999999", "33554433", "33554435",
    "0.100000001490116119384765625", "0.1000000052154064178466796875", "0.10000000521540641784667968750000000000001",
    "00000000000000000000000000000000000000000000000001.5",
    "0.00000000000000000000000000000000000000000000000000000000000001e60",
    "123456789012345678901234567890123456789012345678901234567890",
    // typical scene values
    "-12.3456", "160", "1.0000", "-0.5000", "0.0001", "1e+02", "-1.234567e-05",
    // integers at the edges of int and long
    "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "4294967296", "4294967297", "-4294967297",
    "9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809",
    "18446744073709551615", "18446744073709551616", "99999999999999999999999", "-99999999999999999999999",
    "0000000000000000000000000000002147483647", "+7", "-0x10", "12:", "12 :",
};

// Every prefix is a view that ends early: the scanners must stop there as sscanf stops at a
// terminator ("inf" out of "infinity", "1e" out of "1e5").
TEST(NumberScanTest, AwkwardInputsAndTheirPrefixesMatchTheCLibrary) {
  for (const char* awkward : kAwkward) {
    const std::string_view text(awkward);
    for (size_t length = 0; length <= text.size(); ++length)
      EXPECT_EQ(Disagreement(text.substr(0, length)), "");
  }
}

TEST(NumberScanTest, ZeroByteEndsTheText) {
  using namespace std::string_literals;
  for (const std::string& text : {"12\0" "34"s, "\0" "5"s, "1e\0" "5"s, "inf\0" "inity"s, "infi\0" "nity"s,
                                  "0x\0" "1p3"s, " \0" "7"s, "-\0" "1"s})
    EXPECT_EQ(Disagreement(text), "");
}

// Under -compat the Windows runtime's spellings read as what they name; every other text reads
// exactly as ScanFloat (and so sscanf) reads it: Disagreement checks that for texts without '#'.
TEST(NumberScanTest, WindowsSpellingsOfNanAndInfinity) {
  const std::pair<const char*, uint32_t> cases[] = {
      {"1.#QNAN", 0x7fc00000u}, {"-1.#QNAN", 0xffc00000u}, {"1.#QNAN0", 0x7fc00000u}, {"1.#SNAN", 0x7fc00000u},
      {"-1.#IND", 0xffc00000u}, {"-1.#IND00", 0xffc00000u}, {"1.#INF", 0x7f800000u}, {"+1.#INF", 0x7f800000u},
      {"-1.#INF", 0xff800000u}, {"1.#INF00", 0x7f800000u}, {"1.#QNB", 0x7fc00000u}, {"-1.#SNB", 0xffc00000u},
  };
  for (const auto& [text, bits] : cases) {
    float value = 0.0f;
    EXPECT_TRUE(ScanFloatOrWindowsSpecial(text, &value)) << text;
    EXPECT_EQ(std::bit_cast<uint32_t>(value), bits) << text;
  }
  // Near misses read as "%f" reads them.
  for (const std::string_view text : {"1.#QNANx", "1.#qnan", "2.#INF", "1.#IN", "1.#", "1.#INF01", "11.#INF",
                                      "--1.#INF", "1.#INF ", "-1.#IND0x"}) {
    float ours = std::bit_cast<float>(kSentinel), plain = ours;
    EXPECT_EQ(ScanFloatOrWindowsSpecial(text, &ours), ScanFloat(text, &plain)) << Show(text);
    EXPECT_EQ(std::bit_cast<uint32_t>(ours), std::bit_cast<uint32_t>(plain)) << Show(text);
  }
}

// Random strings assembled from the pieces that steer the collection rules: well-formed floats,
// exact ties between adjacent floats, and fragments.
struct Generator {
  std::mt19937_64 random_;

  std::string Next() {
    switch (Below(6)) {
      case 0: return WellFormedFloat();
      case 1: return Tie();
      default: return Fragments();
    }
  }

  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(random_() % n); }

  std::string Digits(size_t count) {
    std::string digits;
    while (digits.size() < count) digits += static_cast<char>('0' + Below(10));
    return digits;
  }

  std::string WellFormedFloat() {
    const uint32_t kind = Below(3);
    const float value = kind == 0   ? std::bit_cast<float>(static_cast<uint32_t>(random_()))
                        : kind == 1 ? static_cast<float>(static_cast<int32_t>(random_()) % 100000) / 10000.0f
                                    : std::ldexp(static_cast<float>(Below(1u << 24)), static_cast<int>(Below(300)) - 170);
    static const char* const styles[] = {"%.*e", "%.*g", "%.*f", "%.*E", "%#.*g"};
    char text[512];
    std::snprintf(text, sizeof text, styles[Below(5)], static_cast<int>(Below(14)), static_cast<double>(value));
    return text;
  }

  // The exact decimal halfway between two adjacent floats, or nudged by one in its last digit.
  std::string Tie() {
    const uint32_t bits = Below(0x7f800000u);
    const double low = std::bit_cast<float>(bits);
    // Past the largest float the next step would be 2^128: that tie is the overflow threshold.
    const double high = bits == 0x7f7fffffu ? std::ldexp(1.0, 128) : std::bit_cast<float>(bits + 1);
    char text[1200];
    std::snprintf(text, sizeof text, "%.*e", 120 + static_cast<int>(Below(40)), (low + high) / 2);
    std::string tie = text;
    size_t last = tie.find('e') - 1;
    while (tie[last] == '0') --last;
    const uint32_t nudge = Below(3);
    if (nudge == 0 && tie[last] != '9') ++tie[last];
    if (nudge == 1 && tie[last] != '0') --tie[last];
    return (Below(2) ? "-" : "") + tie;
  }

  std::string Fragments() {
    static const char* const pieces[] = {
        "-", "+", "0", "1", "9", ".", "e", "E", "e-", "e+", "p", "P", "p-", "x", "X", "0x", "0X", "inf", "INF",
        "infinity", "inity", "in", "i", "nan", "NaN", "n", "na", "(", ")", "a", "f", "z", "#", "#IND", ":", ",", " ",
        "\t", "\n", "\v", "\f", "\r", "\xa0", "\x80", "2147483647", "2147483648", "-2147483649", "4294967296",
        "9223372036854775807", "9223372036854775808", "-9223372036854775809", "18446744073709551616", "340282346",
        "1e38", "1e39", "1e-45", "1e-46", "1.17549435e-38", "16777217",
    };
    std::string text;
    for (uint32_t i = 0, count = 1 + Below(7); i < count; ++i) {
      const uint32_t kind = Below(10);
      if (kind == 0) text += Digits(1 + Below(4));
      else if (kind == 1) text += Digits(15 + Below(Below(8) == 0 ? 400 : 30));
      else if (kind == 2) text += std::string(Below(8) == 0 ? 1 : 0, '\0');
      else text += pieces[Below(std::size(pieces))];
    }
    return text;
  }
};

TEST(NumberScanTest, ShortDecimalsByOneMultiplicationRoundAsTheQuotient) {
  // The quotient of two exact floats is correctly rounded: the value strtof gives the decimal.
  static constexpr float kPowers[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f};
  for (int fraction = 0; fraction <= 7; ++fraction) {
    int wrong = 0;
    for (uint32_t significand = 0; significand <= (1u << 24) && wrong < 5; ++significand) {
      const float quotient = static_cast<float>(significand) / kPowers[fraction];
      if (std::bit_cast<uint32_t>(ShortDecimalValue(significand, fraction)) != std::bit_cast<uint32_t>(quotient)) {
        ++wrong;
        ADD_FAILURE() << significand << " / 10^" << fraction;
      }
    }
  }
}

TEST(NumberScanTest, RandomInputsMatchTheCLibrary) {
  Generator generator{std::mt19937_64(20240611)};
  int disagreements = 0;
  for (int i = 0; i < 120000 && disagreements < 20; ++i) {
    const std::string problem = Disagreement(generator.Next());
    if (!problem.empty()) {
      ++disagreements;
      ADD_FAILURE() << problem;
    }
  }
}

}  // namespace
