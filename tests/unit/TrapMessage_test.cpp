#include "TrapMessage.h"

#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::bytesOf;
using test::hex;

TEST(TrapMessageTest, LaysTheRecordOutBigEndian) {
  TrapMessage message;
  message.setMsgType(kMsgHeartbeat);
  message.setObjId(0x0123);
  message.setState('1');
  message.ruBytes()[0] = 0xA1;
  message.ruBytes()[2] = 0xA3;
  message.setDeviceRaw(0xD1);
  message.setDeviceId(0xD2);
  message.setText(TrapMessage::kText4, "four");
  message.setText(TrapMessage::kText6, "six");
  message.setText(TrapMessage::kText5, "five");

  Bytes expected =
      hex("00 00 00 04 00 00 00 00 00 01 23 31 a1 00 a3 00 00 00 00 d1 d2 66 6f 75 72");
  expected.resize(213, 0);
  std::memcpy(&expected[85], "six", 3);
  std::memcpy(&expected[149], "five", 4);
  EXPECT_EQ(bytesOf(message), expected);
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
  const TrapMessage cut(received.data(), received.size());
  EXPECT_EQ(cut.text(TrapMessage::kText4).size(), 213U - 21) << "never past the end of the record";
}

TEST(TrapMessageTest, ClipsTextsAndLetsAFullFieldRunOn) {
  TrapMessage message;
  message.setState(0);
  EXPECT_FALSE(message.cleared()) << "only the character 0 means cleared";
  message.setText(TrapMessage::kText4, std::string(80, 'a'));
  EXPECT_EQ(message.text(TrapMessage::kText4), std::string(63, 'a'));
  message.setText(TrapMessage::kText6, "b");
  message.setText(TrapMessage::kText4, std::string(80, 'a'), TrapMessage::kTextSize);
  EXPECT_EQ(message.text(TrapMessage::kText4), std::string(64, 'a') + "b");
}

}  // namespace
}  // namespace norva
