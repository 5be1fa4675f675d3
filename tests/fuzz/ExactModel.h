// The conversions once more, independent of the agent's and of the machine's floating point:
// software computes in 113 binary digits, where the results are exact, and every cast rounds once.
// Pure functions.

#ifndef NORVA_TESTS_FUZZ_EXACT_MODEL_H_
#define NORVA_TESTS_FUZZ_EXACT_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace norva::fuzz {

/// A 32-bit integer, taken as signed or not; in double precision every one is exact.
double asDouble(std::uint32_t integer, bool isSigned);
float asSingle(std::uint32_t integer, bool isSigned);
/// Divided by ten in single precision so many times.
float dividedByTens(float number, unsigned times);
/// Multiplied by ten in double precision so many times.
double timesTens(double number, unsigned times);
/// Cut to an integer; what is out of range is the nearest that is not.
std::uint32_t cut(double number);
/// With two decimals, a tie going to the even digit.
std::string twoDecimals(float number);

/// What is read as a decimal number: blanks, '-', digits, '.', digits, one after the other in
/// single precision, each step rounded once; `used` receives the number of characters.
float decimal(std::string_view text, std::size_t& used);

/// The numbers behind the dots of an OID text, in the 32 bits that a long has on the unit.
std::vector<std::uint32_t> oidNumbers(std::string_view text);

}  // namespace norva::fuzz

#endif  // NORVA_TESTS_FUZZ_EXACT_MODEL_H_
