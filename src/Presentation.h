// How a device object's value comes into its SNMP presentation, and what the record that holds it
// then no longer tells. A plain value type and a pure function; any thread.

#ifndef NORVA_PRESENTATION_H_
#define NORVA_PRESENTATION_H_

#include <cstdint>

namespace norva {

class ObjValue;
class SnmpObjConvertStrategy;

struct Presentation {
  enum Form : std::uint8_t {
    kInteger,    ///< a 32-bit integer
    kTextField,  ///< the device's text field as it stands
    kMadeText,   ///< a text that the conversion made
  };

  Form form = kInteger;
  std::uint8_t deviceLen = 0;  ///< the device's `objLen`, before a text's length replaced it
};

/// Brings `record`, as the device gave it, into its SNMP presentation: an integer is widened to 32
/// bits (`objLen` 7), then the method converts. Returns 0 with `presentation` filled, or -1 for an
/// integer without a usable length.
int present(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod, ObjValue& record,
            Presentation& presentation);

}  // namespace norva

#endif  // NORVA_PRESENTATION_H_
