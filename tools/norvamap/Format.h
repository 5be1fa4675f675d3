// Texts of the tool: printf-like strings and OIDs as text. Pure functions, any thread.

#ifndef NORVA_MAPPING_FORMAT_H_
#define NORVA_MAPPING_FORMAT_H_

#include <string>
#include <string_view>

#include "ServedObjects.h"

namespace norva::mapping {

/// As sprintf.
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

/// Dotted text with a leading dot; empty for no sub-identifiers.
std::string oidText(const Oid& oid);

/// The sub-identifiers of an OID text in which each stands behind a dot, in decimal digits only and
/// in 32 bits. Throws InputError, which calls the text `what`, for any other text.
Oid parseStrictOid(const std::string& text, const std::string& what);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_FORMAT_H_
