// The ends of the records, past which nothing may be read or written.

#include "ObjectProtocol.h"
#include "TestSupport.h"
#include "TrapMessage.h"

namespace norva::test {
namespace {

TEST(RecordsTest, ATextEndsWithTheTrapMessage) {
  const Bytes received(300, 'x');
  struct {
    TrapMessage message;
    char behind[16];
  } record{TrapMessage(received.data(), received.size()), "behind"};
  EXPECT_EQ(record.message.text(TrapMessage::kText4).size(), 213U - 21);
}

TEST(RecordsTest, ASetFrameIsFilledBeyondTheValueWithZeros) {
  ObjValue record;
  record.setObjLen(255);
  record.setText(std::string(64, 'x'));
  SetRequest frame;
  frame.fill(0xEE);
  const std::size_t size = encodeSetRequest(0x1234, record, frame);
  Bytes expected = hex("01 ff 34 12", 4 + 64, 'x');
  expected.resize(4 + 64 + 188);
  EXPECT_EQ(Bytes(frame.data(), frame.data() + size), expected);
}

}  // namespace
}  // namespace norva::test
