// The values that pass between the agent library and the device objects.

#include <array>

#include "AgentLibrary.h"
#include "AnswerValue.h"
#include "OneLine.h"
#include "SetValue.h"
#include "SnmpObjConvertStrategy.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using Integer = std::int32_t;  // answered in host order

constexpr Presentation kNumber{Presentation::kInteger, 7}, kShortNumber{Presentation::kInteger, 5},
    kMade{Presentation::kMadeText, 7}, kField4{Presentation::kTextField, 7},
    kField20{Presentation::kTextField, 23};

TEST(AnswerValueTest, AnswersEveryTypeOrNothing) {
  const auto check = [](int type, const std::string& value, Presentation presentation,
                        const std::optional<Bytes>& expected) {
    SCOPED_TRACE(testing::Message() << type << " " << value);
    ObjValue record;
    value.copy(reinterpret_cast<char*>(record.value()), ObjValue::kValueSize);
    const AnswerValue answer(static_cast<std::uint16_t>(type), record, presentation);
    EXPECT_EQ(answer.type(), type & 0xFF);
    EXPECT_EQ(answer.valid(), expected.has_value());
    if (!expected) return;
    EXPECT_EQ(Bytes(answer.data(), answer.data() + answer.size()), *expected);
  };
  const std::string zeros("\x0A\0\0\x07", 4);
  check(ASN_INTEGER, "ABCDE", kMade, bytesOf(Integer{0x41424344}));
  check(ASN_OPAQUE, std::string(50, 'z'), kField20, Bytes(50, 'z'));
  // Another type with the low byte of INTEGER is a number's type like the others.
  for (const int type :
       std::vector<int>{ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS, ASN_UINTEGER, 0x100 + ASN_INTEGER}) {
    check(type, zeros, kNumber, bytesOf(Integer{0x0A000007}));
    check(type, "12.50", kMade, {});
    check(type, "1234", kField4, {});
  }
  check(ASN_COUNTER64, "1.00", kMade, {});
  check(ASN_IPADDRESS, zeros, kShortNumber, {});
  check(ASN_IPADDRESS, "ABCD", kField20, hex("41 42 43 44"));
  check(ASN_IPADDRESS, "1.00", kMade, {});
  for (const Presentation presentation : {kMade, kField20}) {
    check(ASN_IPADDRESS, "10.0.0.7", presentation, hex("0a 00 00 07"));
    for (const char* text : {"", "123", "10.0.7", "10.0.0.256"}) {
      check(ASN_IPADDRESS, text, presentation, {});
    }
  }
  for (const int type : std::vector<int>{0, ASN_NULL, ASN_OBJECT_ID, ASN_NSAP}) {
    check(type, "1234", kField20, {});
  }
}

TEST(SetValueTest, ReadsWhatTheUnitWouldHold) {
  const auto check = [](int type, const void* data, std::size_t length, std::uint32_t integer,
                        const std::string& text, std::size_t size) {
    SCOPED_TRACE(type);
    const SetValue value(static_cast<std::uint8_t>(type), data, length);
    EXPECT_EQ(value.integer(), integer);
    EXPECT_EQ(value.text(), text);
    EXPECT_EQ(value.size(), size);
    EXPECT_EQ(value.isNumber(), type == ASN_INTEGER || type == ASN_GAUGE || type == ASN_COUNTER64);
    EXPECT_EQ(value.isAddress(), type == ASN_IPADDRESS && length == 4);
  };
  const long number = -2;
  const oid name[] = {1, 3, 6};
  const counter64 wide{7, 0x01020304};
  const float single = 1.1F;
  const double twice = 1.1;
  check(ASN_INTEGER, &number, sizeof number, 0xFFFFFFFE, "\xFF\xFF\xFF\xFE", 4);
  check(ASN_GAUGE, &number, sizeof number, 0xFFFFFFFE, "\xFF\xFF\xFF\xFE", 4);
  check(ASN_COUNTER64, &wide, sizeof wide, 0x01020304, "\x01\x02\x03\x04", 8);
  check(ASN_OBJECT_ID, name, sizeof name, 1, "", 12);
  check(ASN_OPAQUE_FLOAT, &single, sizeof single, 0x3F8CCCCD, "\x3F\x8C\xCC\xCD", 4);
  check(ASN_OPAQUE_DOUBLE, &twice, sizeof twice, 0x3FF19999, "\x3F\xF1\x99\x99\x99\x99\x99\x9A", 8);
  check(ASN_OCTET_STR, "12345\0cut", 9, 0x31323334, "12345", 9);
  check(ASN_OCTET_STR, "12345", 3, 0x31323300, "123", 3);
  check(ASN_OCTET_STR, nullptr, 0, 0, "", 0);
  check(ASN_IPADDRESS, "\x0A\x01\x02\x03", 4, 0x0A010203, "\x0A\x01\x02\x03", 4);
  check(ASN_IPADDRESS, "\x0A", 1, 0x0A000000, "\x0A", 1);
}

TEST(ParseOidTextTest, ReadsWhatIsBehindEachDotAs32Bits) {
  std::array<std::uint32_t, 8> read{};
  EXPECT_EQ(parseOidText("9.1.3x. \t7.+2.-2.4294967295.4294967296.", read.data()), read.size());
  EXPECT_EQ(read,
            (std::array<std::uint32_t, 8>{1, 3, 7, 2, 0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFF, 0}));
}

TEST(OneLineTest, LeavesNoControlCharacter) {
  EXPECT_EQ(oneLine("a\n\x1B[2J\x7F z\xC3\xA4\xE2\x82\xAC"), "a??[2J? z\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(oneLine("\xC2\x9B"
                    "2J\xC2\xA0\x9B"
                    "2J\xF6\x90\xE2\x82"),
            "?2J\xC2\xA0?2J\xF6?\xE2?");
}

}  // namespace
}  // namespace norva::test
