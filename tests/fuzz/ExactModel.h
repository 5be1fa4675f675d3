// The conversions once more, independent of the agent's: binary numbers as integers and powers of
// two, every rounding carried out by hand, no floating point of the machine. Pure functions.

#ifndef NORVA_TESTS_FUZZ_EXACT_MODEL_H_
#define NORVA_TESTS_FUZZ_EXACT_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace norva::fuzz {

__extension__ using Wide = unsigned __int128;

/// mantissa x 2^exponent, or infinite.
struct Real {
  Wide mantissa = 0;
  int exponent = 0;
  bool isInfinite = false;
};

struct SignedReal {
  bool isNegative = false;
  Real size;
};

/// A 32-bit integer, taken as signed or not, in single precision.
SignedReal asSingle(std::uint32_t integer, bool isSigned);
/// Divided by ten in single precision so many times.
SignedReal dividedByTens(SignedReal number, unsigned times);
/// Multiplied by ten in double precision so many times.
SignedReal timesTens(SignedReal number, unsigned times);
/// Cut to an integer; what is out of range is the nearest that is not.
std::uint32_t cut(const SignedReal& number);
/// With two decimals, a tie going to the even digit.
std::string twoDecimals(const SignedReal& number);

/// What is read as a decimal number: blanks, '-', digits, '.', digits, one after the other in
/// single precision, each step rounded once; `used` receives the number of characters.
SignedReal decimal(std::string_view text, std::size_t& used);
/// The bits of a number of single precision.
std::uint32_t singleBits(const SignedReal& number);

/// The numbers behind the dots of an OID text, in the 32 bits that a long has on the unit.
std::vector<std::uint32_t> oidNumbers(std::string_view text);

}  // namespace norva::fuzz

#endif  // NORVA_TESTS_FUZZ_EXACT_MODEL_H_
