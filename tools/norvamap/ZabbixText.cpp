#include "ZabbixText.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>

#include "Format.h"
#include "OneLine.h"

namespace norva::mapping {

namespace {

std::uint64_t hash(const std::string& text, std::uint64_t state) {
  const auto stir = [&state](std::uint64_t bits) {
    state = (state ^ bits) * 0xD6E8FEB86659FD93;
    state ^= state >> 32;
  };
  for (const char c : text) stir(static_cast<unsigned char>(c));
  stir(text.size());
  return state;
}

}  // namespace

std::string withoutMacros(const std::string& raw, std::size_t limit) {
  std::string text;
  for (const char c : oneLine(raw)) {
    const bool isArgument = std::isdigit(static_cast<unsigned char>(c)) != 0 && text.ends_with('$');
    if (isArgument) text += ' ';
    text += c == '{' ? '(' : c == '}' ? ')' : c;
  }
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

std::string uuidOf(const std::string& text) {
  const std::uint64_t high = hash(text, 1);
  const std::uint64_t low = hash(text, 2);
  return format("%012llx4%03llx%llx%015llx", static_cast<unsigned long long>(high >> 16),
                static_cast<unsigned long long>(high & 0xFFF),
                static_cast<unsigned long long>(low >> 62 | 8),
                static_cast<unsigned long long>(low << 4 >> 4));
}

std::string powerOfTen(int exponent) {
  const std::string zeros(static_cast<std::size_t>(std::abs(exponent)), '0');
  return exponent >= 0 ? '1' + zeros : "0." + zeros.substr(1) + '1';
}

std::string decodedInScript(const std::string& text) {
  return "/^([0-9A-F]{2}\\s+)+$/.test(" + text + ") ? decodeURIComponent(" + text +
         ".replace(/\\s+/g, '').replace(/../g, '%$&')) : " + text;
}

}  // namespace norva::mapping
