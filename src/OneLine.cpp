#include "OneLine.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>

namespace norva {

namespace {

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

/// Bytes of the UTF-8 character at `at`; 1 for what is none.
std::size_t characterLength(const std::string& text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const int ones = std::countl_one(lead);
  const std::size_t length = lead >= 0xC2 && ones <= 4 ? static_cast<std::size_t>(ones) : 1;
  if (length > text.size() - at) return 1;
  const auto begin = std::next(text.begin(), static_cast<std::ptrdiff_t>(at));
  const auto end = std::next(begin, static_cast<std::ptrdiff_t>(length));
  return std::all_of(std::next(begin), end, isContinuation) ? length : 1;
}

bool isControl(const std::string& text, std::size_t at, std::size_t length) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (length == 1) return first < ' ' || (first >= 0x7F && first < 0xA0);
  return length == 2 && first == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

}  // namespace

std::string oneLine(std::string text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text, at);
    const bool replaced = isControl(text, at, length);
    if (replaced) text.replace(at, length, 1, '?');
    at += replaced ? 1 : length;
  }
  return text;
}

}  // namespace norva
