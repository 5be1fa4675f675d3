#include "ByteOrder.h"

#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::hex;

// Byte 0 stands in front of the integer: it must not move and leaves the integer unaligned.
TEST(ByteOrderTest, LoadsEachOrder) {
  const Bytes bytes = hex("00 f1 f2 f3 f4");
  EXPECT_EQ(loadBe16(&bytes[1]), 0xF1F2);
  EXPECT_EQ(loadLe16(&bytes[1]), 0xF2F1);
  EXPECT_EQ(loadBe32(&bytes[1]), 0xF1F2F3F4U);
  EXPECT_EQ(loadLe32(&bytes[1]), 0xF4F3F2F1U);
}

TEST(ByteOrderTest, StoresEachOrderAndNothingElse) {
  const auto stored = [](auto store, auto value) {
    Bytes bytes(6, 0xEE);
    store(&bytes[1], value);
    return bytes;
  };
  EXPECT_EQ(stored(storeBe16, std::uint16_t{0xF1F2}), hex("ee f1 f2 ee ee ee"));
  EXPECT_EQ(stored(storeLe16, std::uint16_t{0xF1F2}), hex("ee f2 f1 ee ee ee"));
  EXPECT_EQ(stored(storeBe32, std::uint32_t{0xF1F2F3F4}), hex("ee f1 f2 f3 f4 ee"));
  EXPECT_EQ(stored(storeLe32, std::uint32_t{0xF1F2F3F4}), hex("ee f4 f3 f2 f1 ee"));
}

}  // namespace
}  // namespace norva
