#include "ObjValue.h"

#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::bytesOf;
using test::hex;

TEST(ObjValueTest, LaysTheRecordOutBigEndian) {
  ObjValue record;
  record.setObjLen(7);
  record.setOid(0x80BA);
  record.setAttr(0x0110);
  record.setInteger32(0x01020304);
  Bytes expected = hex("07 80 ba 01 10 00 01 02 03 04");
  expected.resize(70, 0);
  EXPECT_EQ(bytesOf(record), expected);
  EXPECT_EQ(record.objLen(), 7);
  EXPECT_EQ(record.oid(), 0x80BA);
  EXPECT_EQ(record.attr(), 0x0110);
  EXPECT_EQ(record.integer32(), 0x01020304U);
  EXPECT_EQ(record.integer16(), 0x0102);

  record.setInteger16(0xA1A2);
  EXPECT_EQ(record.integer32(), 0xA1A20304U) << "the bytes behind the integer stay";
}

TEST(ObjValueTest, ReadsKindAndWritableBit) {
  struct Case {
    std::uint16_t attr;
    ValueKind kind;
    bool writable;
  };
  for (const Case& c :
       {Case{0xFCEF, ValueKind::kUnsigned, false}, Case{0x0110, ValueKind::kSigned, true},
        Case{0x0200, ValueKind::kText, false}, Case{0xFFFF, ValueKind::kOther, true}}) {
    ObjValue record;
    record.setAttr(c.attr);
    EXPECT_EQ(record.kind(), c.kind) << c.attr;
    EXPECT_EQ(record.writable(), c.writable) << c.attr;
  }
}

TEST(ObjValueTest, KeepsTextWithinTheValue) {
  ObjValue record;
  record.setText(std::string(70, 'x'));
  EXPECT_EQ(record.text(), std::string(64, 'x'));
  record.setText("short");
  EXPECT_EQ(record.text(), "short");
  EXPECT_EQ(Bytes(record.value() + 5, record.value() + 64), Bytes(59, 0));
}

}  // namespace
}  // namespace norva
