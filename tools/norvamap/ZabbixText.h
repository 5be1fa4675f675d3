// Texts of a Zabbix template. Pure functions, any thread.

#ifndef NORVA_MAPPING_ZABBIX_TEXT_H_
#define NORVA_MAPPING_ZABBIX_TEXT_H_

#include <cstddef>
#include <string>

namespace norva::mapping {

/// A text that Zabbix shows as it stands, at most `limit` bytes of it: Zabbix has no escape for its
/// macros, `{$NAME}` and `$1`.
std::string withoutMacros(const std::string& raw, std::size_t limit);

/// A UUID of the form of version 4, always the same for the same text.
std::string uuidOf(const std::string& text);

/// 10 to the power, as digits.
std::string powerOfTen(int exponent);

/// For a script, where `text` is one: an expression for it with letters other than ASCII, in place
/// of which Zabbix has bytes in hexadecimal, each with white space behind it. What is not UTF-8
/// throws.
std::string decodedInScript(const std::string& text);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_ZABBIX_TEXT_H_
