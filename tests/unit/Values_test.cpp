// The values that pass between the agent library and the device objects.

#include "AgentLibrary.h"
#include "AnswerValue.h"
#include "SetValue.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using Integer = std::int32_t;  // answered in host order

TEST(AnswerValueTest, AnswersEveryTypeOrNothing) {
  const auto check = [](int type, const std::string& text, const std::optional<Bytes>& expected) {
    SCOPED_TRACE(testing::Message() << type << " " << text);
    ObjValue record;
    record.setText(text);
    const AnswerValue answer(static_cast<std::uint16_t>(type), record);
    EXPECT_EQ(answer.type(), type & 0xFF);
    EXPECT_EQ(answer.valid(), expected.has_value());
    if (!expected) return;
    EXPECT_EQ(Bytes(answer.data(), answer.data() + answer.size()), *expected);
  };
  const std::string longText(50, 'z');
  check(ASN_INTEGER, "ABCD", bytesOf(Integer{0x41424344}));
  check(ASN_INTEGER, "\xFF\xFF\xFF\xFE", bytesOf(Integer{-2}));
  check(ASN_OCTET_STR, "", Bytes());
  check(ASN_OCTET_STR, longText, Bytes(50, 'z'));
  check(ASN_GAUGE, "", bytesOf(Integer{0}));
  check(ASN_GAUGE, "1", bytesOf(Integer{0x31}));
  check(ASN_GAUGE, "123", bytesOf(Integer{0x313233}));
  check(ASN_GAUGE, "12.5", bytesOf(Integer{0x31322E35}));
  check(ASN_GAUGE, longText, bytesOf(Integer{0x7A7A7A7A}));
  check(0x100 + ASN_INTEGER, "12", bytesOf(Integer{0x3132}));  // another type, the same low byte
  check(ASN_IPADDRESS, "\x0A\x01\x02\x03", hex("0a 01 02 03"));
  for (const char* text : {"", "123", "12345", "10.0.0.1"}) check(ASN_IPADDRESS, text, {});
  for (const int type : std::vector<int>{0, ASN_NULL, ASN_OBJECT_ID, ASN_COUNTER64}) {
    check(type, "1234", {});
  }
}

TEST(SetValueTest, ReadsWhatTheLibraryHolds) {
  const auto check = [](std::uint8_t type, const void* data, std::size_t length,
                        std::uint32_t integer, const std::string& text) {
    const SetValue value(type, data, length);
    EXPECT_EQ(value.integer(), integer);
    EXPECT_EQ(value.text(), text);
  };
  const long number = -2;
  check(ASN_INTEGER, &number, sizeof number, 0xFFFFFFFE, "\xFF\xFF\xFF\xFE");
  check(ASN_GAUGE, &number, sizeof number, 0xFFFFFFFE, "\xFF\xFF\xFF\xFE");
  check(ASN_OCTET_STR, "12345\0cut", 9, 0x31323334, "12345");
  check(ASN_OCTET_STR, "12345", 3, 0x31323300, "123");
  check(ASN_OCTET_STR, "12345", 0, 0, "");
  check(ASN_OCTET_STR, nullptr, 0, 0, "");
  check(ASN_IPADDRESS, "\x0A\x01\x02\x03", 4, 0x0A010203, "\x0A\x01\x02\x03");
}

}  // namespace
}  // namespace norva::test
