// The small text forms that the object file and the control commands share: words, quoted texts,
// numbers, hexadecimal bytes. Pure functions, any thread.

#ifndef NORVA_DASUNIT_TEXT_H_
#define NORVA_DASUNIT_TEXT_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace norva::dasunit {

using Bytes = std::vector<std::uint8_t>;

/// What somebody wrote cannot be accepted. `what()` is the reason in one line.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The words of a line, separated by blanks, up to a word that begins with '#'. A quoted text is
/// one word and keeps its quotes and escapes. Throws InputError for a quote that is not closed.
std::vector<std::string> splitWords(std::string_view line);

/// True for a word that decodeText accepts the beginning of.
inline bool isQuoted(std::string_view word) {
  return !word.empty() && word.front() == '"';
}

/// The bytes of a quoted text: \" \\ and \xNN stand for one byte. Throws InputError for any other
/// escape.
std::string decodeText(std::string_view quoted);

/// The inverse of decodeText: all that is not printable ASCII becomes \xNN.
std::string encodeText(std::string_view bytes);

/// A decimal or, with 0x, hexadecimal integer, with an optional sign. Throws InputError, which
/// calls the number `what`, for anything else and for a number outside `low` to `high`.
std::int64_t parseInteger(std::string_view word, const std::string& what, std::int64_t low,
                          std::int64_t high);

/// An object id: 1 to 4 hexadecimal digits, 0x not needed.
std::uint16_t parseObjectId(std::string_view word);

/// "0x%04x".
std::string formatObjectId(std::uint16_t id);

/// Bytes from pairs of hexadecimal digits; blanks between pairs are ignored.
Bytes parseHex(std::string_view text);

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_TEXT_H_
