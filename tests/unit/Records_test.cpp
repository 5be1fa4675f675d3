// The device object record, the trap message record and the frames, byte for byte.

#include "ObjectProtocol.h"
#include "TestSupport.h"
#include "TrapMessage.h"

namespace norva::test {
namespace {

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST(ObjValueTest, LaysTheRecordOutBigEndian) {
  ObjValue record;
  record.setObjLen(7);
  record.setOid(0x80BA);
  record.setAttr(0xFDEF);
  record.setInteger32(0x01020304);
  record.setInteger16(0xA1A2);
  EXPECT_EQ(bytesOf(record), hex("07 80 ba fd ef 00 a1 a2 03 04", 70));
  EXPECT_EQ(record.kind(), ValueKind::kSigned);
  EXPECT_FALSE(record.writable());
  record.setText(std::string(70, 'x'));
  EXPECT_EQ(record.text(), std::string(64, 'x'));
  record.setText("ab");
  EXPECT_EQ(bytesOf(record), hex("07 80 ba fd ef 00 61 62", 70));
}

TEST(TrapMessageTest, LaysTheRecordOutBigEndian) {
  TrapMessage message;
  message.setMsgType(kMsgHeartbeat);
  message.setObjId(0x0123);
  message.setState('1');
  message.ruBytes()[2] = 0xA3;
  message.setDeviceRaw(0xD1);
  message.setDeviceId(0xD2);
  message.setText(TrapMessage::kText4, "4");
  message.setText(TrapMessage::kText6, "6");
  message.setText(TrapMessage::kText5, "5");
  EXPECT_EQ(bytesOf(message),
            hex("00 00 00 04 00 00 00 00 00 01 23 31 00 00 a3 00 00 00 00 d1 d2") + hex("34", 64) +
                hex("36", 64) + hex("35", 64));
}

TEST(TrapMessageTest, ReadsAReceivedRecord) {
  Bytes received = hex("ff ff ff fe 00 00 00 00 00 80 ba 30 01 02 03 00 00 00 00 07 09 61 62");
  const TrapMessage message(received.data(), received.size());
  EXPECT_EQ(message.msgType(), -2);
  EXPECT_EQ(message.objId(), 0x80BA);
  EXPECT_TRUE(message.cleared());
  EXPECT_EQ(Bytes(message.ruBytes(), message.ruBytes() + 3), hex("01 02 03"));
  EXPECT_EQ(message.deviceId(), 9);
  EXPECT_EQ(message.text(TrapMessage::kText4), "ab");
  EXPECT_EQ(message.text(TrapMessage::kText5), "") << "what was not received is zero";

  received.resize(300, 'x');
  TrapMessage cut(received.data(), received.size());
  EXPECT_EQ(cut.text(TrapMessage::kText4).size(), 213U - 21) << "never past the end of the record";
  cut.setText(TrapMessage::kText4, std::string(80, 'a'));
  EXPECT_EQ(cut.text(TrapMessage::kText4), std::string(63, 'a'));
  cut.setText(TrapMessage::kText6, "b");
  cut.setText(TrapMessage::kText4, std::string(80, 'a'), TrapMessage::kTextSize);
  EXPECT_EQ(cut.text(TrapMessage::kText4), std::string(64, 'a') + "b") << "a full field runs on";
}

TEST(ObjectProtocolTest, EncodesRequests) {
  const GetRequest get = encodeGetRequest(0x80BA);
  EXPECT_EQ(Bytes(get.begin(), get.end()), hex("02 07 ba 80 00 00 00 00"));
  const auto check = [](std::uint8_t objLen, bool usual, const Bytes& expected) {
    ObjValue record;
    record.setObjLen(objLen);
    std::memcpy(record.value(), pattern(64).data(), 64);
    SetRequest frame;
    frame.fill(0xEE);
    const std::size_t size = encodeSetRequest(0x1234, record, frame);
    EXPECT_EQ(Bytes(frame.data(), frame.data() + size), expected);
    EXPECT_EQ(isSetLength(objLen), usual);
  };
  check(0, false, hex("01"));
  check(2, false, hex("01 02 34"));
  check(4, true, hex("01 04 34 12 01"));
  check(5, true, hex("01 05 34 12 02 01"));
  check(6, false, hex("01 06 34 12 01 02 03"));
  check(7, true, hex("01 07 34 12 04 03 02 01"));
  check(23, true, hex("01 17 34 12") + pattern(20));
  check(255, false, hex("01 ff 34 12") + pattern(64) + Bytes(188));
}

TEST(ObjectProtocolTest, DecodesAGetReply) {
  const Bytes frame = hex("12 05 10 01 34 f2") + pattern(64);
  const GetReplyHeader header = decodeGetReplyHeader(frame.data());
  EXPECT_EQ(header.command, 0x12);
  EXPECT_EQ(header.objLen, 5);
  EXPECT_EQ(header.attr, 0x0110);
  EXPECT_EQ(header.oid, 0xF234);
  const auto check = [&](std::uint16_t attr, std::uint8_t objLen, bool decoded,
                         const Bytes& value) {
    ObjValue record;
    std::memset(record.value(), 0xEE, 64);
    record.setObjLen(objLen);
    record.setAttr(attr);
    EXPECT_EQ(decodeGetReplyValue(frame.data(), record), decoded);
    EXPECT_EQ(Bytes(record.value(), record.value() + 64), value) << attr << " " << int{objLen};
  };
  check(0x0000, 4, true, hex("01", 64, 0xEE));
  check(0x0100, 5, true, hex("02 01", 64, 0xEE));
  check(0x0300, 7, true, hex("04 03 02 01", 64, 0xEE));
  check(0x0000, 6, false, Bytes(64, 0xEE));
  check(0x0100, 23, false, Bytes(64, 0xEE));
  check(0x0200, 13, true, pattern(10) + Bytes(54));
  check(0x0200, 5, true, hex("01 02", 64));
  check(0x0200, 255, true, pattern(64));
  check(0x0200, 1, true, Bytes(64));
}

}  // namespace
}  // namespace norva::test
