// What a strict SET writes: the value that the manager asked for, in the form of the device's
// field, or the SNMP error that tells why there is none. Pure functions, any thread.

#ifndef NORVA_STRICT_VALUE_H_
#define NORVA_STRICT_VALUE_H_

#include <cstdint>

#include "ObjValue.h"
#include "SetValue.h"

namespace norva {

/// SNMP error statuses.
enum StrictError : int {
  kNoError = 0,
  kWrongType = 7,    ///< the request's type is not the mapping's
  kWrongLength = 8,  ///< a text is longer than the device's field
  /// The field holds nothing of which a GET would show the value: the same number, decimal or,
  /// where the mapping scales it, scaled; of anything else the same bytes.
  kWrongValue = 10,
};

/// Fills `written` with what makes `current`, the object as its device has it, hold `value`; a
/// record as setObjValue takes it. `asnType` and `covMethod` are those of the object's mapping.
StrictError encodeStrictly(const SetValue& value, std::uint16_t asnType, std::uint16_t covMethod,
                           const ObjValue& current, ObjValue& written);

}  // namespace norva

#endif  // NORVA_STRICT_VALUE_H_
