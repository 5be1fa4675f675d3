#include "SnmpObjConvertStrategy.h"

#include <array>

#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr std::uint16_t kUnsigned = 0, kSigned = 0x0100;

ObjValue integerRecord(std::uint16_t attr, std::uint32_t integer) {
  ObjValue record;
  record.setObjLen(7);
  record.setAttr(attr);
  record.setText(std::string(64, 'x'));  // what a conversion to text must clear
  record.setInteger32(integer);
  return record;
}

ObjValue textRecord(std::uint16_t attr, const std::string& text, std::size_t objLen) {
  ObjValue record = integerRecord(attr, 0);
  record.setObjLen(static_cast<std::uint8_t>(objLen));
  record.setText(text);
  return record;
}

const SnmpObjConvertStrategy strategy;

// Numbers and texts meet in single precision, and what has a fraction is truncated: some values
// lose a unit.
TEST(SnmpObjConvertStrategyTest, ToSnmp) {
  const auto check = [](std::uint16_t method, std::uint16_t attr, std::uint32_t integer,
                        const char* text) {
    ObjValue record = integerRecord(attr, integer);
    EXPECT_EQ(strategy.convertToSnmp(method, record), 0);
    EXPECT_EQ(bytesOf(record), bytesOf(textRecord(attr, text, std::strlen(text)))) << text;
  };
  check(0x0001, kUnsigned, 0x0A000001, "10.0.0.1");
  check(0x2004, kUnsigned, 1234, "12.34");
  check(0x1004, kSigned, 0xFFFFFF9C, "-10.00");
  check(0x0004, kUnsigned, 123456789, "123456792.00");
  ObjValue record = integerRecord(kUnsigned, 0x12345678);
  EXPECT_EQ(strategy.convertToSnmp(11, record), 0);
  EXPECT_EQ(bytesOf(record), bytesOf(integerRecord(kUnsigned, 0x00005678)));
}

TEST(SnmpObjConvertStrategyTest, ToObjDecimalText) {
  const auto check = [](std::uint16_t method, const std::string& text, std::uint32_t expected) {
    ObjValue record = textRecord(kUnsigned, text, 7);
    EXPECT_EQ(strategy.convertToObj(method, record), 0);
    EXPECT_EQ(record.integer32(), expected) << text;
    EXPECT_EQ(record.objLen(), 7) << "left as it was";
  };
  check(0x2004, "0.29", 28);
  check(0x1004, "2.3", 22);
  check(0x0004, "16777217", 16777216);
  check(0x0004, "33556077", 33556076);
  check(0x2004, "0.45", 45);
  check(0x0004, std::string(64, '9'), 0xFFFFFFFF);
}

TEST(ParseOidTextTest, ReadsWhatIsBehindEachDotAs32Bits) {
  std::array<std::uint32_t, 8> read{};
  EXPECT_EQ(parseOidText("9.1.3x. \t7.+2.-2.4294967295.4294967296.", read.data()), read.size());
  EXPECT_EQ(read,
            (std::array<std::uint32_t, 8>{1, 3, 7, 2, 0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFF, 0}));
}

}  // namespace
}  // namespace norva::test
