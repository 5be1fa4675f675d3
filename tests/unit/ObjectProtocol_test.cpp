#include "ObjectProtocol.h"

#include <set>

#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::hex;
using test::pattern;

ObjValue recordOf(std::uint8_t objLen, const Bytes& value, std::uint16_t attr = 0) {
  ObjValue record;
  record.setObjLen(objLen);
  record.setAttr(attr);
  std::memcpy(record.value(), value.data(), value.size());
  return record;
}

TEST(ObjectProtocolTest, EncodesAGetRequest) {
  const GetRequest frame = encodeGetRequest(0x80BA);
  EXPECT_EQ(Bytes(frame.begin(), frame.end()), hex("02 07 ba 80 00 00 00 00"));
}

TEST(ObjectProtocolTest, EncodesASetRequestOfEveryLength) {
  const Bytes value = pattern(64);  // 01 02 03 ...
  const auto asTheyStand = [&value](const std::string& header, std::size_t count) {
    Bytes frame = hex(header);
    frame.insert(frame.end(), value.begin(), value.begin() + static_cast<std::ptrdiff_t>(count));
    return frame;
  };
  Bytes longest = asTheyStand("01 ff 34 12", 64);
  longest.resize(256, 0);
  const struct {
    std::uint8_t objLen;
    Bytes frame;
  } cases[] = {
      {4, hex("01 04 34 12 01")},
      {5, hex("01 05 34 12 02 01")},
      {7, hex("01 07 34 12 04 03 02 01")},
      {23, asTheyStand("01 17 34 12", 20)},
      {6, hex("01 06 34 12 01 02 03")},
      {13, asTheyStand("01 0d 34 12", 10)},
      {67, asTheyStand("01 43 34 12", 64)},
      {68, asTheyStand("01 44 34 12", 64)},
      {255, longest},
      {3, hex("01 03 34 12")},
      {2, hex("01 02 34")},
      {0, hex("01")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(int{c.objLen});
    SetRequest frame;
    frame.fill(0xEE);
    const std::size_t size = encodeSetRequest(0x1234, recordOf(c.objLen, value), frame);
    Bytes expected = c.frame;
    expected.resize(c.objLen + std::size_t{1}, 0);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)), expected);
  }
}

TEST(ObjectProtocolTest, KnowsTheLengthsThatASetCarries) {
  std::set<int> lengths;
  for (int objLen = 0; objLen < 256; ++objLen) {
    if (isSetLength(static_cast<std::uint8_t>(objLen))) lengths.insert(objLen);
  }
  EXPECT_EQ(lengths, (std::set<int>{4, 5, 7, 23}));
}

TEST(ObjectProtocolTest, DecodesAGetReplyHeader) {
  Bytes frame = hex("12 05 10 01 34 f2");
  frame.resize(kMinGetReplyBuffer, 0);
  const GetReplyHeader header = decodeGetReplyHeader(frame.data());
  EXPECT_EQ(header.command, 0x12);
  EXPECT_EQ(header.objLen, 5);
  EXPECT_EQ(header.attr, 0x0110);
  EXPECT_EQ(header.oid, 0xF234);
}

TEST(ObjectProtocolTest, DecodesAGetReplyValueByKindAndLength) {
  constexpr std::uint16_t kUnsigned = 0, kSigned = 0x0100, kText = 0x0200, kOther = 0x0300;
  Bytes frame(6, 0);
  const Bytes sent = pattern(64);
  frame.insert(frame.end(), sent.begin(), sent.end());
  const Bytes before(64, 0xEE);
  const auto over = [](Bytes bytes, const Bytes& start) {
    std::copy(start.begin(), start.end(), bytes.begin());
    return bytes;
  };
  const Bytes zeros(64, 0);
  const Bytes ten = pattern(10);
  const struct {
    std::uint16_t attr;
    std::uint8_t objLen;
    bool decoded;
    Bytes value;
  } cases[] = {
      {kUnsigned, 4, true, over(before, hex("01"))},
      {kSigned, 5, true, over(before, hex("02 01"))},
      {kOther, 7, true, over(before, hex("04 03 02 01"))},
      {kUnsigned, 6, false, before},
      {kSigned, 23, false, before},
      {kOther, 0, false, before},
      {kText, 13, true, over(zeros, ten)},
      {kText, 5, true, over(zeros, hex("01 02"))},
      {kText, 67, true, sent},
      {kText, 255, true, sent},
      {kText, 3, true, zeros},
      {kText, 1, true, zeros},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "attr " << c.attr << " objLen " << int{c.objLen});
    ObjValue record = recordOf(c.objLen, before, c.attr);
    EXPECT_EQ(decodeGetReplyValue(frame.data(), record), c.decoded);
    EXPECT_EQ(Bytes(record.value(), record.value() + 64), c.value);
  }
}

}  // namespace
}  // namespace norva
