#include "ExactModel.h"

#include <algorithm>
#include <cmath>

namespace norva::fuzz {

namespace {

#ifdef __SIZEOF_FLOAT128__
__extension__ using Exact = __float128;
#else
using Exact = long double;
static_assert(sizeof(Exact) == 16, "as on a 64-bit ARM");
#endif

/// The sum of two numbers of at most 30 digits, rounded once: what is too small for 113 digits
/// still decides a tie.
float sum(Exact a, Exact b) {
  if (a < b) std::swap(a, b);
  const Exact exact = a + b;
  return static_cast<float>(exact == a && b > 0 ? a + a * 0x1p-112 : exact);
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

double asDouble(std::uint32_t integer, bool isSigned) {
  return isSigned ? static_cast<std::int32_t>(integer) : static_cast<double>(integer);
}

float asSingle(std::uint32_t integer, bool isSigned) {
  return static_cast<float>(Exact{asDouble(integer, isSigned)});
}

float dividedByTens(float number, unsigned times) {
  for (; times > 0; --times) number = static_cast<float>(Exact{number} / 10);
  return number;
}

double timesTens(double number, unsigned times) {
  for (; times > 0; --times) number = static_cast<double>(Exact{number} * 10);
  return number;
}

std::uint32_t cut(double number) {
  return static_cast<std::uint32_t>(
      static_cast<std::int64_t>(std::clamp(number, -2147483648.0, 4294967295.0)));
}

std::string twoDecimals(float number) {
  const Exact exact = Exact{std::fabs(number)} * 100;
  auto hundredths = static_cast<std::uint64_t>(exact);
  const Exact twice = (exact - static_cast<Exact>(hundredths)) * 2;
  if (twice > 1 || (twice == 1 && hundredths % 2 != 0)) ++hundredths;
  const std::string decimals = std::to_string(100 + hundredths % 100).substr(1);
  return (std::signbit(number) ? "-" : "") + std::to_string(hundredths / 100) + '.' + decimals;
}

float decimal(std::string_view text, std::size_t& used) {
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

std::vector<std::uint32_t> oidNumbers(std::string_view text) {
  std::vector<std::uint32_t> numbers;
  for (std::size_t dot = text.find('.'); dot != std::string_view::npos;
       dot = text.find('.', dot + 1)) {
    std::size_t at = dot + 1;
    while (at < text.size() && isBlank(text[at])) ++at;
    const bool isNegative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    std::uint64_t number = 0;
    for (; at < text.size() && isDigit(text[at]); ++at) {
      number = std::min<std::uint64_t>(number * 10 + static_cast<unsigned>(text[at] - '0'),
                                       std::uint64_t{1} << 32);
    }
    const bool fits = number <= 0xFFFFFFFF;
    const auto low = static_cast<std::uint32_t>(number);
    numbers.push_back(!fits ? 0xFFFFFFFF : isNegative ? 0U - low : low);
  }
  return numbers;
}

}  // namespace norva::fuzz
