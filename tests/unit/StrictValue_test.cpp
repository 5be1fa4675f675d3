#include "StrictValue.h"

#include "AsnType.h"
#include "ByteOrder.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

/// An object as its device has it, and its mapping.
struct Object {
  std::uint16_t attr;
  int width;  // of its value in bytes
  int asnType = kAsnInteger;
  int method = 0;
};

constexpr std::uint16_t kUnsigned = 0, kSigned = 0x0100, kText = 0x0200, kOther = 0x0300;
constexpr Object kDecimal{kSigned, 2, kAsnOctetString, 0x2004},
    kWhole{kUnsigned, 4, kAsnOctetString, 4}, kText8{kText, 8, kAsnOctetString},
    kText4{kText, 4, kAsnOctetString}, kText2{kText, 2, kAsnOctetString},
    kText64{kText, 64, kAsnOctetString}, kTimes100{kSigned, 2, kAsnInteger, 0x2000},
    kTimes1e9{kSigned, 4, kAsnInteger, 0x9000}, kGauge{kUnsigned, 4, kAsnGauge32},
    kDotted{kUnsigned, 4, kAsnOctetString, 1}, kAddress{kUnsigned, 4, kAsnIpAddress},
    kAddress4{kText, 4, kAsnIpAddress}, kAddress8{kText, 8, kAsnIpAddress};

/// Checks what is written of `given`, the library's bytes: `expected`, or an error.
void check(const Object& object, int type, const Bytes& given, StrictError error,
           const Bytes& expected = {}) {
  ObjValue current, written;
  current.setAttr(object.attr);
  current.setObjLen(static_cast<std::uint8_t>(object.width + kObjLenOverhead));
  current.setText(std::string(static_cast<std::size_t>(object.width), 'o'));
  const SetValue value(static_cast<std::uint8_t>(type), given.data(), given.size());
  EXPECT_EQ(encodeStrictly(value, static_cast<std::uint16_t>(object.asnType),
                           static_cast<std::uint16_t>(object.method), current, written),
            error);
  if (error != kNoError) return;
  EXPECT_EQ(written.objLen(), current.objLen());
  Bytes all = expected;
  all.resize(ObjValue::kValueSize);
  EXPECT_EQ(Bytes(written.value(), written.value() + ObjValue::kValueSize), all);
}

void checkNumber(const Object& object, long number, StrictError error, const Bytes& expected = {}) {
  SCOPED_TRACE(testing::Message() << object.width << " " << object.method << " " << number);
  check(object, object.asnType, bytesOf(number), error, expected);
}

void checkText(const Object& object, const std::string& text, StrictError error,
               const Bytes& expected = {}) {
  SCOPED_TRACE(testing::Message() << object.width << " " << object.method << " " << text);
  check(object, object.asnType, Bytes(text.begin(), text.end()), error, expected);
}

TEST(StrictValueTest, NumbersHaveTheWidthAndTheSignOfTheField) {
  struct {
    Object object;
    long low, high;
  } const limits[] = {{{kUnsigned, 1}, 0, 0xFF},
                      {{kSigned, 1}, -0x80, 0x7F},
                      {{kUnsigned, 2}, 0, 0xFFFF},
                      {{kSigned, 2}, -0x8000, 0x7FFF}};
  for (const auto& [object, low, high] : limits) {
    for (const long end : {low, high}) {
      Bytes bytes(4);
      storeBe32(bytes.data(), static_cast<std::uint32_t>(end) << (32 - 8 * object.width));
      checkNumber(object, end, kNoError, bytes);
    }
    checkNumber(object, low - 1, kWrongValue);
    checkNumber(object, high + 1, kWrongValue);
  }
  checkNumber({kSigned, 4}, -0x7FFFFFFF - 1, kNoError, hex("80 00 00 00"));
  checkNumber({kUnsigned, 4}, -1, kWrongValue);
  checkNumber(kGauge, static_cast<long>(0xFFFFFFFFUL), kNoError, hex("ff ff ff ff"));
  checkNumber({kSigned, 4, kAsnGauge32}, static_cast<long>(0x80000000UL), kWrongValue);
  checkNumber(kTimes100, -327, kNoError, hex("80 44"));
  checkNumber(kTimes100, 328, kWrongValue);
  checkNumber(kTimes1e9, 2, kNoError, hex("77 35 94 00"));
  checkNumber(kTimes1e9, 3, kWrongValue);
  checkNumber({kUnsigned, 4, kAsnInteger, 4}, 5, kWrongValue);
  checkNumber({kText, 8}, 5, kWrongValue);
  const unsigned long wide[] = {1, 5};  // high and low
  check({kUnsigned, 4, kAsnCounter64}, kAsnCounter64, bytesOf(wide), kWrongValue);
}

TEST(StrictValueTest, Decimals) {
  checkText(kDecimal, "0.29", kNoError, hex("00 1d"));
  checkText(kDecimal, "-12.5", kNoError, hex("fb 1e"));
  checkText(kDecimal, "+3.", kNoError, hex("01 2c"));
  checkText(kDecimal, "2.3000", kNoError, hex("00 e6"));
  checkText(kDecimal, std::string(63, '0') + "1", kNoError, hex("00 64"));
  checkText(kDecimal, std::string(64, '0') + "1", kWrongLength);
  checkText(kWhole, "16777216", kNoError, hex("01 00 00 00"));
  checkText({kUnsigned, 4, kAsnOctetString, 0x3004}, "1.23", kNoError, hex("00 00 04 ce"));
  for (const char* text : {"327.68", "0.295", "1e3", "", "1.2.3", "-", ".", " 1", "0x10"}) {
    checkText(kDecimal, text, kWrongValue);
  }
  checkText(kDecimal, std::string(64, '9'), kWrongValue);
  checkText(kWhole, "-1", kWrongValue);
  checkText(kWhole, "4294967296", kWrongValue);
}

TEST(StrictValueTest, TextsAndAddresses) {
  const std::string address("\x0A\x01\x02\x03", 4);
  checkText(kText8, "12345678", kNoError, hex("31 32 33 34 35 36 37 38"));
  checkText(kText8, "", kNoError);
  checkText({kText, 8, kAsnOpaque}, "ab", kNoError, hex("61 62"));
  checkText(kText64, std::string(64, 'x'), kNoError, Bytes(64, 'x'));
  checkText(kText4, "west", kNoError, hex("74 73 65 77"));  // the frame turns it around
  checkText(kText2, "sw", kNoError, hex("77 73"));
  checkText(kDotted, "10.1.2.3", kNoError, hex("0a 01 02 03"));
  checkText(kAddress, address, kNoError, hex("0a 01 02 03"));
  checkText(kAddress4, address, kNoError, hex("03 02 01 0a"));
  checkText(kAddress8, address, kNoError, hex("31 30 2e 31 2e 32 2e 33"));
  checkText(kAddress8, "dddd", kWrongLength);
  checkText(kText8, "123456789", kWrongLength);
  checkText({kText, 100, kAsnOctetString}, std::string(65, 'x'), kWrongLength);
  checkText(kText8, std::string("e\0", 2), kWrongValue);
  checkText(kDotted, "10.1.2.256", kWrongValue);
  checkText({kUnsigned, 2, kAsnIpAddress}, address, kWrongValue);
  checkText({kUnsigned, 4, kAsnOctetString}, "5", kWrongValue);
  checkText({kText, 8, kAsnOctetString, 4}, "5", kWrongValue);
}

// What a GET would show otherwise: of a field that is not widened, cut, converted or rounded.
TEST(StrictValueTest, WhatDoesNotReadBackIsRefused) {
  checkNumber({kOther, 4}, 500, kNoError, hex("00 00 01 f4"));
  checkNumber({kOther, 2}, 500, kWrongValue);
  checkNumber({kUnsigned, 4, kAsnInteger, 11}, 2, kNoError, hex("00 00 00 02"));
  checkNumber({kUnsigned, 4, kAsnInteger, 11}, 65538, kWrongValue);
  checkNumber({kUnsigned, 4, kAsnInteger, 1}, 7, kWrongValue);
  const Object dotted4{kText, 4, kAsnOctetString, 1};
  checkText(dotted4, "10.0.2.9", kNoError, hex("09 02 00 0a"));
  checkText(dotted4, "abcd", kWrongValue);
  checkText({kText, 20, kAsnOctetString, 2}, "10.0.2.9", kWrongValue);
  checkText({kText, 20, kAsnOctetString, 3}, "noon", kWrongValue);
  checkText(kWhole, "16777217", kWrongValue);
  checkText({kUnsigned, 4, kAsnOctetString, 0x3004}, "1.234", kWrongValue);
}

}  // namespace
}  // namespace norva::test
