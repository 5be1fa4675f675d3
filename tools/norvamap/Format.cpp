#include "Format.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>

#include "Text.h"

namespace norva::mapping {

std::string format(const char* pattern, ...) {
  va_list arguments;
  va_start(arguments, pattern);
  va_list again;
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, pattern, arguments);
  va_end(arguments);
  std::string text(static_cast<std::size_t>(std::max(size, 0)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  return text;
}

std::string oidText(const Oid& oid) {
  std::string text;
  for (const std::uint32_t subIdentifier : oid) text += '.' + std::to_string(subIdentifier);
  return text;
}

Oid parseStrictOid(const std::string& text, const std::string& what) {
  Oid oid;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end && *at == '.') {
    std::uint32_t subIdentifier = 0;
    const auto [behind, error] = std::from_chars(at + 1, end, subIdentifier);
    if (error != std::errc()) break;
    oid.push_back(subIdentifier);
    at = behind;
  }
  if (oid.empty() || at != end) {
    throw dasunit::InputError(what + " '" + text + "' is not of the form .1.3.6");
  }
  return oid;
}

}  // namespace norva::mapping
