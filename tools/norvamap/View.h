// What a manager sees of a device object: the agent's own conversion and answer, as text. Pure
// functions, any thread.

#ifndef NORVA_MAPPING_VIEW_H_
#define NORVA_MAPPING_VIEW_H_

#include <cstdint>
#include <string>

#include "ObjInfo.h"
#include "ObjValue.h"
#include "SnmpObjConvertStrategy.h"

namespace norva::mapping {

/// Name of a type that managers know, such as "Counter32"; null for any other. Its low byte counts,
/// as for the agent.
const char* typeName(std::uint16_t asnType);
/// The same, or "no type (0x29)".
std::string describeType(std::uint16_t asnType);

inline unsigned methodOf(std::uint16_t covMethod) {
  return covMethod & 0xFFFU;
}
inline unsigned exponentOf(std::uint16_t covMethod) {
  return covMethod >> 12U;
}
/// Highest method number that means something.
constexpr unsigned kLastMethod = 11;

/// What a conversion does, in a few words: "as it is", "/ 10^1, as text".
std::string describeMethod(std::uint16_t covMethod);

struct View {
  bool isAnswered = false;
  std::string value;  ///< as a manager's tool shows it: a number, a quoted text, an address
};

/// What a GET answers for `record`, as the unit gave it, under a type and a method.
View viewOf(const ObjValue& record, std::uint16_t asnType, std::uint16_t covMethod);

/// Whether there is an object, of any kind and width, that can be answered under a type and method.
bool canBeAnswered(std::uint16_t asnType, std::uint16_t covMethod);

/// Bytes in quotes, with escapes for what is not printable.
std::string inQuotes(std::string_view bytes);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_VIEW_H_
