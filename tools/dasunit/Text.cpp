#include "Text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace norva::dasunit {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

bool isBlank(char character) {
  return kBlanks.find(character) != std::string_view::npos;
}

/// Value of exactly two hexadecimal digits, or -1.
int hexPair(std::string_view digits) {
  std::uint8_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, value, 16);
  return digits.size() == 2 && result.ec == std::errc{} && result.ptr == end ? value : -1;
}

/// Position behind the closing quote of the text that opens at `start`.
std::size_t endOfQuoted(std::string_view line, std::size_t start) {
  for (std::size_t at = start + 1; at < line.size(); ++at) {
    if (line[at] == '\\') {
      ++at;
    } else if (line[at] == '"') {
      return at + 1;
    }
  }
  throw InputError("text without a closing quote");
}

}  // namespace

std::vector<std::string> splitWords(std::string_view line) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while ((at = line.find_first_not_of(kBlanks, at)) != std::string_view::npos) {
    if (line[at] == '#') break;
    std::size_t end = 0;
    if (line[at] == '"') {
      end = endOfQuoted(line, at);
      if (end < line.size() && !isBlank(line[end])) {
        throw InputError("a blank must follow the closing quote");
      }
    } else {
      end = std::min(line.find_first_of(kBlanks, at), line.size());
    }
    words.emplace_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

std::string decodeText(std::string_view quoted) {
  if (quoted.size() < 2 || quoted.front() != '"' || endOfQuoted(quoted, 0) != quoted.size()) {
    throw InputError("a text must stand in quotes");
  }
  const std::string_view body = quoted.substr(1, quoted.size() - 2);
  std::string bytes;
  for (std::size_t at = 0; at < body.size(); ++at) {
    if (body[at] != '\\') {
      bytes += body[at];
      continue;
    }
    ++at;  // an escape is never the last character: it would have hidden the closing quote
    if (body[at] == '"' || body[at] == '\\') {
      bytes += body[at];
    } else if (const int value = body[at] == 'x' ? hexPair(body.substr(at + 1, 2)) : -1;
               value >= 0) {
      bytes += static_cast<char>(value);
      at += 2;
    } else {
      throw InputError("unknown escape in a text: use \\\" \\\\ \\xNN");
    }
  }
  return bytes;
}

std::string encodeText(std::string_view bytes) {
  std::string quoted = "\"";
  for (const char character : bytes) {
    if (character == '"' || character == '\\') {
      quoted += '\\';
      quoted += character;
    } else if (character >= ' ' && character <= '~') {
      quoted += character;
    } else {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(character));
      quoted += escape;
    }
  }
  return quoted += '"';
}

std::int64_t parseInteger(std::string_view word, const std::string& what, std::int64_t low,
                          std::int64_t high) {
  std::string_view digits = word;
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) digits.remove_prefix(1);
  const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
  if (hexadecimal) digits.remove_prefix(2);

  std::uint64_t magnitude = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, magnitude, hexadecimal ? 16 : 10);
  if (digits.empty() || result.ptr != end || result.ec == std::errc::invalid_argument) {
    throw InputError(what + " is not a number: " + std::string(word));
  }
  const bool fits = result.ec == std::errc{} && magnitude <= std::uint64_t{INT64_MAX};
  const auto value = static_cast<std::int64_t>(negative ? -magnitude : magnitude);
  if (!fits || value < low || value > high) {
    throw InputError(what + " is out of range: " + std::string(word) + " is not " +
                     std::to_string(low) + " to " + std::to_string(high));
  }
  return value;
}

std::uint16_t parseObjectId(std::string_view word) {
  std::string_view digits = word;
  if (digits.starts_with("0x") || digits.starts_with("0X")) digits.remove_prefix(2);
  std::uint16_t id = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, id, 16);
  if (digits.empty() || digits.size() > 4 || result.ec != std::errc{} || result.ptr != end) {
    throw InputError("not an object id of 1 to 4 hexadecimal digits: " + std::string(word));
  }
  return id;
}

std::string formatObjectId(std::uint16_t id) {
  char text[7];
  std::snprintf(text, sizeof text, "0x%04x", unsigned{id});
  return text;
}

Bytes parseHex(std::string_view text) {
  Bytes bytes;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(kBlanks, at)) != std::string_view::npos) {
    const int value = hexPair(text.substr(at, 2));
    if (value < 0) throw InputError("not pairs of hexadecimal digits: " + std::string(text));
    bytes.push_back(static_cast<std::uint8_t>(value));
    at += 2;
  }
  return bytes;
}

}  // namespace norva::dasunit
