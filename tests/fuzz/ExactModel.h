// The conversions once more, independent of the agent's and of the machine's floating point:
// software computes in 113 binary digits, where the results are exact, and every cast rounds once.
// Pure functions.

#ifndef NORVA_TESTS_FUZZ_EXACT_MODEL_H_
#define NORVA_TESTS_FUZZ_EXACT_MODEL_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace norva::fuzz {

#ifdef __SIZEOF_FLOAT128__
__extension__ using Exact = __float128;
#else
using Exact = long double;
static_assert(sizeof(Exact) == 16, "as on a 64-bit ARM");
#endif

/// The sum of two numbers of at most 30 digits, rounded once: what is too small for 113 digits
/// still decides a tie.
inline float sum(Exact a, Exact b) {
  if (a < b) std::swap(a, b);
  const Exact exact = a + b;
  return static_cast<float>(exact == a && b > 0 ? a + a * 0x1p-112 : exact);
}

inline bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

inline bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// A 32-bit integer, taken as signed or not; in double precision every one is exact.
inline double asDouble(std::uint32_t integer, bool isSigned) {
  return isSigned ? static_cast<std::int32_t>(integer) : static_cast<double>(integer);
}

inline float asSingle(std::uint32_t integer, bool isSigned) {
  return static_cast<float>(Exact{asDouble(integer, isSigned)});
}

/// Divided by ten in single precision so many times.
inline float dividedByTens(float number, unsigned times) {
  for (; times > 0; --times) number = static_cast<float>(Exact{number} / 10);
  return number;
}

/// Multiplied by ten in double precision so many times.
inline double timesTens(double number, unsigned times) {
  for (; times > 0; --times) number = static_cast<double>(Exact{number} * 10);
  return number;
}

/// Cut to an integer; what is out of range is the nearest that is not.
inline std::uint32_t cut(double number) {
  return static_cast<std::uint32_t>(
      static_cast<std::int64_t>(std::clamp(number, -2147483648.0, 4294967295.0)));
}

/// With two decimals, a tie going to the even digit.
inline std::string twoDecimals(float number) {
  const Exact exact = Exact{std::fabs(number)} * 100;
  auto hundredths = static_cast<std::uint64_t>(exact);
  const Exact twice = (exact - static_cast<Exact>(hundredths)) * 2;
  if (twice > 1 || (twice == 1 && hundredths % 2 != 0)) ++hundredths;
  const std::string decimals = std::to_string(100 + hundredths % 100).substr(1);
  return (std::signbit(number) ? "-" : "") + std::to_string(hundredths / 100) + '.' + decimals;
}

/// What is read as a decimal number: blanks, '-', digits, '.', digits, one after the other in
/// single precision, each step rounded once; `used` receives the number of characters.
inline float decimal(std::string_view text, std::size_t& used) {
  std::size_t at = 0;
  while (at < text.size() && isBlank(text[at])) ++at;
  const bool isNegative = at < text.size() && text[at] == '-';
  if (isNegative) ++at;
  float result = 0;
  for (; at < text.size() && isDigit(text[at]); ++at) {
    result = sum(Exact{result} * 10, text[at] - '0');
  }
  if (at < text.size() && text[at] == '.') {
    float scale = 1;
    for (++at; at < text.size() && isDigit(text[at]); ++at) {
      scale = static_cast<float>(static_cast<double>(Exact{scale} * 0.1));
      result = sum(Exact{scale} * (text[at] - '0'), result);
    }
  }
  used = at;
  return isNegative ? -result : result;
}

}  // namespace norva::fuzz

#endif  // NORVA_TESTS_FUZZ_EXACT_MODEL_H_
