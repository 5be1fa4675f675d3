// What managers write and the unit then holds, and the defaults of a SET.

#include "DeviceForm.h"

#include "AsnType.h"
#include "SetValue.h"
#include "SnmpObjConvertStrategy.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr std::uint16_t kUnsigned = 0, kSigned = 0x0100, kText = 0x0200, kOther = 0x0300;
const SnmpObjConvertStrategy strategy;

ObjValue recordOf(std::uint16_t attr, int objLen, const Bytes& value) {
  ObjValue record;
  record.setAttr(attr);
  record.setObjLen(static_cast<std::uint8_t>(objLen));
  std::copy(value.begin(), value.end(), record.value());
  return record;
}

Bytes valueOf(const ObjValue& record, std::size_t size) {
  return {record.value(), record.value() + size};
}

TEST(DeviceFormTest, ToDevice) {
  const auto check = [](int method, std::uint16_t attr, int objLen, const std::string& value,
                        const std::optional<Bytes>& expected, bool isAddress = false) {
    SCOPED_TRACE(testing::Message() << method << " " << attr << " " << objLen << " " << value);
    const ObjValue current = recordOf(attr, objLen, hex("11 22 33 44"));
    ObjValue record;
    record.setText(value);
    const int result =
        toDevice(strategy, static_cast<std::uint16_t>(method), current, isAddress, record);
    EXPECT_EQ(result, expected ? 0 : -1);
    EXPECT_EQ(record.objLen(), objLen);
    if (!expected) return;
    Bytes all = *expected;
    all.resize(10);
    EXPECT_EQ(valueOf(record, 10), all);
  };
  const std::string address("\x0A\0\0\x07", 4);
  check(0, kSigned, 5, "\xFF\xFF\xFF\xFB", hex("ff fb"));
  check(0, kUnsigned, 7, "\x01\x02\x03\x04", hex("01 02 03 04"));
  check(0, kOther, 5, "\x01\x02\x03\x04", hex("03 04"));
  check(0x2000, kSigned, 5, "\xFF\xFF\xFF\xFB", hex("fe 0c"));  // the device's sign counts
  check(0, kUnsigned, 6, "\x01\x02\x03\x04", {});
  check(0, kText, 7, "west", hex("77 65 73 74"));
  check(0, kText, 7, "north", {});
  check(0, kText, 2, "", {});
  check(0x1004, kUnsigned, 5, "2.30", hex("00 16"));  // cut in single precision
  check(0x2004, kUnsigned, 7, "0.45", hex("00 00 00 2d"));
  check(4, kUnsigned, 7, "33556077", hex("02 00 06 6c 36 30 37 37"));
  check(4, kUnsigned, 7, std::string(64, '9'), hex("ff ff ff ff", 10, '9'));
  check(4, kUnsigned, 5, "12,5", {});
  check(4, kText, 13, "12.5", hex("00 00 00 0c"));
  check(0, kText, 11, address, hex("31 30 2e 30 2e 30 2e 37"), true);
  check(0, kText, 10, address, {}, true);
}

TEST(DeviceFormTest, ValuesOfScalarsAndCells) {
  // What is in the record before: of a scalar nothing, of a cell what was read.
  const auto check = [](int type, const Bytes& given, int asnType,
                        const std::optional<Bytes>& scalar, const Bytes& cell) {
    SCOPED_TRACE(testing::Message() << type << " into " << asnType);
    const SetValue value(static_cast<std::uint8_t>(type), given.data(), given.size());
    ObjValue record;
    EXPECT_EQ(takeScalarValue(value, record), scalar.has_value());
    if (scalar) {
      EXPECT_EQ(valueOf(record, scalar->size()), *scalar);
    }
    record.setText("read before");
    takeCellValue(value, static_cast<std::uint16_t>(asnType), record);
    EXPECT_EQ(valueOf(record, cell.size()), cell);
  };
  const Bytes five = bytesOf(5L), text = hex("37 61 62 63 64"), address = hex("0a 00 00 07");
  check(kAsnInteger, five, kAsnInteger, hex("00 00 00 05 00"), hex("00 00 00 05 20"));
  check(kAsnGauge32, five, kAsnInteger, hex("00 00 00 05 00"), hex("00 00 00 05 20"));
  check(kAsnOctetString, text, kAsnInteger, hex("37 61 62 63 64 00"), hex("37 61 62 63 20"));
  check(kAsnIpAddress, address, kAsnInteger, hex("0a 00 00 07 00"), hex("0a 00 00 07 00"));
  check(kAsnInteger, five, kAsnOctetString, hex("00 00 00 05 00"), hex("00 00 00 00 00"));
  check(kAsnGauge32, five, kAsnOctetString, hex("00 00 00 05 00"), hex("00 00 00 05 00"));
  for (const int asnType : std::vector<int>{kAsnGauge32, kAsnCounter64, kAsnIpAddress}) {
    check(kAsnInteger, five, asnType, hex("00 00 00 05 00"), hex("00 00 00 05 00"));
    check(kAsnOctetString, text, asnType, hex("37 61 62 63 64 00"), hex("37 61 62 63 64 00"));
  }
  check(kAsnOctetString, Bytes(64, 'x'), kAsnOctetString, Bytes(64, 'x'), Bytes(64, 'x'));
  check(kAsnOctetString, Bytes(65, 'x'), kAsnOctetString, {}, Bytes(64, 'x'));
  check(kAsnOctetString, hex("41 00 42"), kAsnOctetString, hex("41 00 00"), hex("41 00 00"));
}

}  // namespace
}  // namespace norva::test
