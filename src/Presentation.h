// How a device object's value came into its SNMP presentation: what the record that holds it no
// longer tells. A plain value type.

#ifndef NORVA_PRESENTATION_H_
#define NORVA_PRESENTATION_H_

#include <cstdint>

namespace norva {

struct Presentation {
  enum Form : std::uint8_t {
    kInteger,    ///< a 32-bit integer
    kTextField,  ///< the device's text field as it stands
    kMadeText,   ///< a text that the conversion made
  };

  Form form = kInteger;
  std::uint8_t deviceLen = 0;  ///< the device's `objLen`, before a text's length replaced it
};

}  // namespace norva

#endif  // NORVA_PRESENTATION_H_
