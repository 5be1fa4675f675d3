#include "ObjectProtocol.h"

#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr std::uint16_t kUnsigned = 0, kText = 0x0200, kOther = 0x0300;

TEST(ObjectProtocolTest, Requests) {
  const GetRequest get = encodeGetRequest(0x80BA);
  EXPECT_EQ(Bytes(get.begin(), get.end()), hex("02 07 ba 80 00 00 00 00"));

  const auto check = [](std::uint8_t objLen, const Bytes& expected) {
    ObjValue record;
    record.setObjLen(objLen);
    const Bytes value = pattern(ObjValue::kValueSize);
    std::copy(value.begin(), value.end(), record.value());
    SetRequest frame;
    const std::size_t size = encodeSetRequest(0x0102, record, frame);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + static_cast<long>(size)), expected);
  };
  check(4, hex("01 04 02 01 01"));
  check(5, hex("01 05 02 01 02 01"));
  check(7, hex("01 07 02 01 04 03 02 01"));
  check(6, hex("01 06 02 01 01 02 03"));
  check(2, hex("01 02 02"));
  Bytes longest = hex("01 ff 02 01");
  for (const std::uint8_t byte : pattern(ObjValue::kValueSize)) longest.push_back(byte);
  longest.resize(256);
  check(255, longest);
}

TEST(ObjectProtocolTest, Replies) {
  // The value of the record was 01 02 03 04 05 before.
  const auto check = [](std::uint16_t attr, const std::string& frame, bool isRead,
                        const std::string& value) {
    SCOPED_TRACE(frame);
    const Bytes reply = hex(frame, kMinGetReplyBuffer);
    const GetReplyHeader header = decodeGetReplyHeader(reply.data());
    EXPECT_EQ(header.attr, attr | ObjValue::kWritable);
    EXPECT_EQ(header.oid, 0x0102);
    ObjValue record;
    record.setText("\1\2\3\4\5");
    record.setObjLen(header.objLen);
    record.setAttr(header.attr);
    EXPECT_EQ(decodeGetReplyValue(reply.data(), record), isRead);
    EXPECT_EQ(Bytes(record.value(), record.value() + 5), hex(value));
  };
  check(kUnsigned, "12 04 10 00 02 01 fe ff", true, "fe 02 03 04 05");
  check(kUnsigned, "12 05 10 00 02 01 34 12 ff", true, "12 34 03 04 05");
  check(kOther, "12 07 10 03 02 01 04 03 02 01 ff", true, "01 02 03 04 05");
  check(kUnsigned, "12 06 10 00 02 01 fe fe fe", false, "01 02 03 04 05");
  check(kText, "12 05 10 02 02 01 41 42 43", true, "41 42 00 00 00");
  check(kText, "12 02 10 02 02 01 41", true, "00 00 00 00 00");
}

TEST(ObjectProtocolTest, OnlyTextsOfTwoAndFourBytesAreTurnedForWriting) {
  for (const std::uint16_t attr : {kUnsigned, kText, kOther}) {
    for (const std::uint8_t objLen : std::initializer_list<std::uint8_t>{4, 5, 6, 7, 8}) {
      ObjValue record;
      record.setText("abcde");
      record.setObjLen(objLen);
      record.setAttr(attr);
      turnForWriting(record);
      const bool isTurned = attr == kText && (objLen == 5 || objLen == 7);
      EXPECT_EQ(record.text(), !isTurned ? "abcde" : objLen == 5 ? "bacde" : "dcbae");
    }
  }
}

}  // namespace
}  // namespace norva::test
