// The two forms of an object's value, the unit's and the one that managers see, and the way from
// each to the other: toManager for a GET, toDevice for a SET. What a manager writes is brought into
// a record by takeScalarValue or takeCellValue; what is strictly refused stands in StrictValue.h.
//
// Plain value types and pure functions; any thread.

#ifndef NORVA_DEVICE_FORM_H_
#define NORVA_DEVICE_FORM_H_

#include <cstdint>

namespace norva {

class ObjValue;
class SetValue;
class SnmpObjConvertStrategy;

/// What a record in the managers' form no longer tells of its value.
struct Presentation {
  enum Form : std::uint8_t {
    kInteger,    ///< a 32-bit integer
    kTextField,  ///< the device's text field as it stands
    kMadeText,   ///< a text that the conversion made
  };

  Form form = kInteger;
  std::uint8_t deviceLen = 0;  ///< the device's `objLen`, before a text's length replaced it
};

/// Brings `record`, as the device gave it, into the managers' form: an integer is widened to 32
/// bits (`objLen` 7), then the method converts. Returns 0 with `presentation` filled, or -1 for an
/// integer without a usable length.
int toManager(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod, ObjValue& record,
              Presentation& presentation);

/// The reverse: brings the value of `record`, a 32-bit integer or a text, into the form that the
/// device has in `current`, whose length and attribute word the record takes over. With `isAddress`
/// the integer is an IPv4 address, which reaches an integer object and a text field of four bytes
/// as its four bytes, any other text field dotted. Of a number too large the low bytes are kept.
/// Returns 0, or -1 for a text that the method cannot read or that is longer than the device's
/// field, and for an integer without a usable length.
int toDevice(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod,
             const ObjValue& current, bool isAddress, ObjValue& record);

// How a SET's value comes into the record that toDevice takes. The type in the request, not the
// object's, decides between number and text. Deliberate, and not the same for both:
//
//                                    scalar            cell
// a text into an INTEGER             a text            a number, of its first four bytes
// an INTEGER into a text             a number          the text of its four bytes
// a number into an INTEGER           zeros behind it   what was read stays behind it
// a text of more than 64 bytes       refused           cut

/// Fills the value of `record`. False for a text that is too long.
bool takeScalarValue(const SetValue& value, ObjValue& record);

/// Fills the value of `record`, which holds the cell's present one in the managers' form; `asnType`
/// is the mapping's.
void takeCellValue(const SetValue& value, std::uint16_t asnType, ObjValue& record);

}  // namespace norva

#endif  // NORVA_DEVICE_FORM_H_
