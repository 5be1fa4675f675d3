#include "ExactModel.h"

#include <algorithm>

namespace norva::fuzz {

namespace {

struct Format {
  int digits;  // of the mantissa
  int least;   // exponent of the last digit that is ever kept
  int most;    // numbers of this many digits before the point are infinite
};
constexpr Format kSingle{24, -149, 128};
constexpr Format kDouble{53, -1074, 1024};

int bitLength(Wide number) {
  int length = 0;
  for (; number != 0; number >>= 1) ++length;
  return length;
}

/// `number`, and a little more if `isMore`, rounded to the nearest, a tie to the even one.
Real rounded(Real number, bool isMore, const Format& format) {
  if (number.isInfinite || number.mantissa == 0) return number;
  const int drop =
      std::max(bitLength(number.mantissa) - format.digits, format.least - number.exponent);
  if (drop > 127) return {};
  if (drop > 0) {
    const Wide rest = number.mantissa & ((Wide{1} << drop) - 1);
    const Wide half = Wide{1} << (drop - 1);
    number.mantissa >>= drop;
    number.exponent += drop;
    const bool isOdd = (number.mantissa & 1) != 0;
    if (rest > half || (rest == half && (isMore || isOdd))) ++number.mantissa;
  }
  number.isInfinite = bitLength(number.mantissa) + number.exponent > format.most;
  return number;
}

Real product(Real number, Wide factor, int exponent = 0) {
  return {number.mantissa * factor, number.exponent + exponent, number.isInfinite};
}

/// The sum of two numbers of at most 30 digits, rounded once.
Real sum(Real a, Real b, const Format& format) {
  if (a.isInfinite || b.isInfinite) return {0, 0, true};
  if (a.mantissa == 0) return rounded(b, false, format);
  if (b.mantissa == 0) return rounded(a, false, format);
  if (a.exponent < b.exponent) std::swap(a, b);
  constexpr int kRoom = 90;
  const int shift = std::min(a.exponent - b.exponent, kRoom);
  const int lost = std::min(a.exponent - b.exponent - shift, 127);
  const Wide low = b.mantissa >> lost;
  return rounded({(a.mantissa << shift) + low, a.exponent - shift}, (low << lost) != b.mantissa,
                 format);
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

SignedReal asSingle(std::uint32_t integer, bool isSigned) {
  const bool isNegative = isSigned && (integer >> 31) != 0;
  const Wide size = isNegative ? (Wide{1} << 32) - integer : integer;
  return {isNegative, rounded({size, 0}, false, kSingle)};
}

SignedReal dividedByTens(SignedReal number, unsigned times) {
  constexpr int kRoom = 80;
  for (; times > 0; --times) {
    const Wide large = number.size.mantissa << kRoom;
    number.size = rounded({large / 10, number.size.exponent - kRoom}, large % 10 != 0, kSingle);
  }
  return number;
}

SignedReal timesTens(SignedReal number, unsigned times) {
  for (; times > 0; --times) number.size = rounded(product(number.size, 10), false, kDouble);
  return number;
}

std::uint32_t cut(const SignedReal& number) {
  const Real& size = number.size;
  Wide whole = 0;
  if (size.isInfinite || bitLength(size.mantissa) + size.exponent > 40) {
    whole = Wide{1} << 40;
  } else {
    whole = size.exponent >= 0     ? size.mantissa << size.exponent
            : size.exponent > -128 ? size.mantissa >> -size.exponent
                                   : 0;
  }
  if (!number.isNegative) return static_cast<std::uint32_t>(std::min(whole, Wide{0xFFFFFFFF}));
  return 0U - static_cast<std::uint32_t>(std::min(whole, Wide{0x80000000}));
}

std::string twoDecimals(const SignedReal& number) {
  Wide hundredths = number.size.mantissa * 100;
  if (number.size.exponent >= 0) {
    hundredths <<= number.size.exponent;
  } else {
    const int drop = std::min(-number.size.exponent, 127);
    const Wide rest = hundredths & ((Wide{1} << drop) - 1);
    const Wide half = Wide{1} << (drop - 1);
    hundredths >>= drop;
    if (rest > half || (rest == half && (hundredths & 1) != 0)) ++hundredths;
  }
  const auto whole = static_cast<std::uint64_t>(hundredths / 100);
  const auto decimals = static_cast<unsigned>(hundredths % 100);
  return (number.isNegative ? "-" : "") + std::to_string(whole) + '.' +
         static_cast<char>('0' + decimals / 10) + static_cast<char>('0' + decimals % 10);
}

SignedReal decimal(std::string_view text, std::size_t& used) {
  std::size_t at = 0;
  while (at < text.size() && isBlank(text[at])) ++at;
  SignedReal result;
  result.isNegative = at < text.size() && text[at] == '-';
  if (result.isNegative) ++at;
  const auto digit = [&] { return static_cast<Wide>(text[at] - '0'); };
  for (; at < text.size() && isDigit(text[at]); ++at) {
    result.size = sum(product(result.size, 10), {digit(), 0}, kSingle);
  }
  if (at < text.size() && text[at] == '.') {
    constexpr Wide kTenth = 0x1999999999999A;  // x 2^-56, the nearest of double precision
    Real scale{1, 0};
    for (++at; at < text.size() && isDigit(text[at]); ++at) {
      scale = rounded(rounded(product(scale, kTenth, -56), false, kDouble), false, kSingle);
      result.size = sum(product(scale, digit()), result.size, kSingle);
    }
  }
  used = at;
  return result;
}

std::uint32_t singleBits(const SignedReal& number) {
  const std::uint32_t sign = number.isNegative ? 0x80000000U : 0;
  Real size = number.size;
  if (size.isInfinite) return sign | 0x7F800000U;
  if (size.mantissa == 0) return sign;
  for (; bitLength(size.mantissa) < kSingle.digits && size.exponent > kSingle.least;
       size.mantissa <<= 1) {
    --size.exponent;
  }
  // What has all its digits begins with one that is not written.
  for (; (size.mantissa & 1) == 0 && bitLength(size.mantissa) > kSingle.digits;
       size.mantissa >>= 1) {
    ++size.exponent;
  }
  const auto digits = static_cast<std::uint32_t>(size.mantissa);
  const bool isNormal = bitLength(size.mantissa) == kSingle.digits;
  const auto biased = static_cast<std::uint32_t>(size.exponent - kSingle.least + 1);
  return sign | (isNormal ? (biased << 23) | (digits & 0x7FFFFFU) : digits);
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
