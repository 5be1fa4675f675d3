#include "SnmpObjConvertStrategy.h"

#include <ctime>

#include "TestSupport.h"

namespace norva {
namespace {

using test::bytesOf;

constexpr std::uint16_t kUnsigned = 0x0000;
constexpr std::uint16_t kSigned = 0x0100;
constexpr std::uint16_t kText = 0x0200;
constexpr std::uint16_t kOther = 0x0300;

ObjValue integerRecord(std::uint16_t attr, std::uint32_t integer) {
  ObjValue record;
  record.setObjLen(7);
  record.setOid(0x0123);
  record.setAttr(attr);
  record.setText(std::string(64, 'x'));  // what a conversion to text must clear
  record.setInteger32(integer);
  return record;
}

ObjValue textRecord(std::uint16_t attr, const std::string& text) {
  ObjValue record = integerRecord(attr, 0);
  record.setText(text);
  return record;
}

const SnmpObjConvertStrategy strategy;

TEST(SnmpObjConvertStrategyTest, ToSnmpText) {
  const struct {
    std::uint16_t covMethod;
    std::uint16_t attr;
    std::uint32_t integer;
    const char* text;
    std::uint8_t objLen;
  } cases[] = {
      {0x0001, kUnsigned, 0x0A000001, "10.0.0.1", 8},
      {0x0002, kSigned, 0xFFFFFFFF, "255.255.255.255", 15},
      {0x2004, kUnsigned, 1234, "12.34", 5},
      {0x1004, kSigned, 0xFFFFFF9C, "-10.00", 6},
      {0x1004, kOther, 0xFFFFFFFF, "429496736.00", 12},
      {0x0004, kUnsigned, 123456789, "123456792.00", 12},
      {0x3004, kUnsigned, 1500, "1.50", 4},
      {0xF004, kUnsigned, 1, "0.00", 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ObjValue record = integerRecord(c.attr, c.integer);
    ObjValue expected = textRecord(c.attr, c.text);
    expected.setObjLen(c.objLen);
    EXPECT_EQ(strategy.convertToSnmp(c.covMethod, record), 0);
    EXPECT_EQ(bytesOf(record), bytesOf(expected));
  }
}

TEST(SnmpObjConvertStrategyTest, ToSnmpLowHalf) {
  ObjValue record = integerRecord(kUnsigned, 0x12345678);
  EXPECT_EQ(strategy.convertToSnmp(11, record), 0);
  EXPECT_EQ(bytesOf(record), bytesOf(integerRecord(kUnsigned, 0x00005678)));
}

TEST(SnmpObjConvertStrategyTest, OtherMethodsLeaveTheRecordAlone) {
  for (const std::uint16_t attr : {kUnsigned, kSigned, kText, kOther}) {
    const ObjValue before = integerRecord(attr, 0x12345678);
    for (const int method : {0, 5, 6, 7, 8, 9, 10, 12, 13, 0xFFF, 0x2000, 0x200C}) {
      ObjValue record = before;
      EXPECT_EQ(strategy.convertToSnmp(static_cast<std::uint16_t>(method), record), 0);
      EXPECT_EQ(bytesOf(record), bytesOf(before)) << method;
    }
    for (const int method : {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 0xFFF, 0x200C}) {
      ObjValue record = before;
      EXPECT_EQ(strategy.convertToObj(static_cast<std::uint16_t>(method), record), 0);
      EXPECT_EQ(bytesOf(record), bytesOf(before)) << method;
    }
  }
}

TEST(SnmpObjConvertStrategyTest, ToSnmpTimeIsNowInLocalTimeUnpadded) {
  setenv("TZ", "TST-5:30", 1);  // 5 h 30 min ahead of UTC
  tzset();
  ObjValue record = integerRecord(kUnsigned, 0x12345678);
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(strategy.convertToSnmp(3, record), 0);
  const std::time_t after = std::time(nullptr);
  unsetenv("TZ");
  tzset();

  const std::string text(record.text());
  EXPECT_EQ(record.objLen(), text.size() + 3);
  std::tm shown{};
  ASSERT_EQ(std::sscanf(text.c_str(), "%d:%d:%d %d/%d/%d", &shown.tm_hour, &shown.tm_min,
                        &shown.tm_sec, &shown.tm_mon, &shown.tm_mday, &shown.tm_year),
            6)
      << text;
  std::ostringstream unpadded;
  unpadded << shown.tm_hour << ':' << shown.tm_min << ':' << shown.tm_sec << ' ' << shown.tm_mon
           << '/' << shown.tm_mday << '/' << shown.tm_year;
  EXPECT_EQ(text, unpadded.str());
  shown.tm_mon -= 1;
  shown.tm_year -= 1900;
  const std::time_t utc = timegm(&shown) - (5 * 60 + 30) * 60;
  EXPECT_GE(utc, before);
  EXPECT_LE(utc, after);
  EXPECT_EQ(bytesOf(record), [&] {
    ObjValue expected = textRecord(kUnsigned, text);
    expected.setObjLen(record.objLen());
    return bytesOf(expected);
  }());
}

TEST(SnmpObjConvertStrategyTest, ToObjScaledInteger) {
  const struct {
    std::uint16_t covMethod;
    std::uint16_t attr;
    std::uint32_t integer;
    std::uint32_t expected;
  } cases[] = {
      {0x0000, kUnsigned, 5, 5},
      {0x2000, kSigned, static_cast<std::uint32_t>(-5), 0xFFFFFE0C},
      {0x3000, kUnsigned, 4000000, 4000000000},
      {0x0000, kUnsigned, 0x80000000, 0x80000000},
      {0x0000, kOther, 0xFFFFFFFF, 0xFFFFFFFF},
      {0x1000, kUnsigned, 0x80000000, 0xFFFFFFFF},
      {0xF000, kSigned, 1, 0xFFFFFFFF},
      {0x0000, kSigned, 0x80000000, 0x80000000},
      {0x1000, kSigned, 0x80000000, 0x80000000},
      {0x2000, kText, 7, 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.covMethod << " " << c.integer);
    ObjValue record = integerRecord(c.attr, c.integer);
    EXPECT_EQ(strategy.convertToObj(c.covMethod, record), 0);
    EXPECT_EQ(bytesOf(record), bytesOf(integerRecord(c.attr, c.expected)));
  }
}

TEST(SnmpObjConvertStrategyTest, ToObjDecimalText) {
  const struct {
    std::uint16_t covMethod;
    std::string text;
    std::uint32_t expected;
  } cases[] = {
      // Built in single precision and truncated: some lose one unit.
      {0x2004, "0.29", 28},
      {0x1004, "2.3", 22},
      {0x2004, "12.34", 1234},
      {0x1004, "25.5", 255},
      {0x1004, "12.5", 125},
      {0x0004, "16777217", 16777216},
      {0x0004, "3000000000", 3000000000},
      {0x0004, "4294967296", 0xFFFFFFFF},
      {0x0004, std::string(64, '9'), 0xFFFFFFFF},
      {0x1004, "7.", 70},
      {0x1004, ".5", 5},
      {0x1004, "1.5.9", 15},
      {0x0004, ".", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ObjValue record = textRecord(kUnsigned, c.text);
    EXPECT_EQ(strategy.convertToObj(c.covMethod, record), 0);
    EXPECT_EQ(record.integer32(), c.expected);
    EXPECT_EQ(record.objLen(), 7) << "left as it was";
  }
  for (const char* text : {"", "-3", "+3", "1e3", " 1", "1 ", "12a", "1,5"}) {
    SCOPED_TRACE(text);
    ObjValue record = textRecord(kSigned, text);
    EXPECT_EQ(strategy.convertToObj(0x1004, record), -1);
    EXPECT_EQ(bytesOf(record), bytesOf(textRecord(kSigned, text)));
  }
}

TEST(SnmpObjConvertStrategyTest, SingleOperations) {
  ObjValue text = textRecord(kText, "5");
  EXPECT_EQ(strategy.scaleUp(0x1000, text), -1);
  EXPECT_EQ(strategy.scaleDown(0x1000, text), -1);
  EXPECT_EQ(bytesOf(text), bytesOf(textRecord(kText, "5")));

  const auto scaledDown = [](std::uint16_t covMethod, std::uint16_t attr, std::uint32_t integer) {
    ObjValue record = integerRecord(attr, integer);
    EXPECT_EQ(strategy.scaleDown(covMethod, record), 0);
    return record.integer32();
  };
  EXPECT_EQ(scaledDown(0x2000, kUnsigned, 1299), 12U);
  EXPECT_EQ(scaledDown(0x2000, kSigned, static_cast<std::uint32_t>(-1299)), 0xFFFFFFF4);
  EXPECT_EQ(scaledDown(0x0000, kUnsigned, 123456789), 123456792U);

  EXPECT_EQ(SnmpObjConvertStrategy::isDecimalText("1.5"), 0);
  EXPECT_EQ(SnmpObjConvertStrategy::isDecimalText(""), -1);
  const std::string digits(63, '1');
  EXPECT_EQ(SnmpObjConvertStrategy::isDecimalText((digits + "1x").c_str()), 0);
  EXPECT_EQ(SnmpObjConvertStrategy::isDecimalText((digits + "x").c_str()), -1);
}

TEST(ParseDecimalTest, ReadsTheNumberAtTheStart) {
  const struct {
    const char* text;
    float number;
    std::ptrdiff_t end;
  } cases[] = {
      {"12.5", 12.5F, 4}, {" \t-1.5x", -1.5F, 6}, {"12.", 12.0F, 3}, {".25.5", 0.25F, 3},
      {"1e3", 1.0F, 1},   {"+1", 0.0F, 0},        {"", 0.0F, 0},     {"16777219", 16777220.0F, 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const char* end = nullptr;
    EXPECT_EQ(parseDecimal(c.text, &end), c.number);
    EXPECT_EQ(end - c.text, c.end);
    EXPECT_EQ(parseDecimal(c.text, nullptr), c.number);
  }
  EXPECT_EQ(parseDecimal(nullptr, nullptr), 0.0F);
}

TEST(ParseOidTextTest, ReadsANumberAfterEveryDot) {
  using Oid = std::vector<std::uint32_t>;
  const struct {
    const char* text;
    Oid oid;
  } cases[] = {
      {".1.3.6.1.4.1", {1, 3, 6, 1, 4, 1}},
      {"1.3.6.1", {3, 6, 1}},
      {"..5", {0, 5}},
      {".1.x.3", {1, 0, 3}},
      {".4294967295.7 ", {4294967295, 7}},
      {".", {0}},
      {"abc", {}},
      {"", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Oid oid(8, 99);
    const std::uint32_t count = parseOidText(c.text, oid.data());
    ASSERT_EQ(count, c.oid.size());
    oid.resize(count);
    EXPECT_EQ(oid, c.oid);
  }
  std::uint32_t entry = 0;
  EXPECT_EQ(parseOidText(nullptr, &entry), 0xFFFFFFFFU);
  EXPECT_EQ(parseOidText(".1", nullptr), 0xFFFFFFFFU);
}

TEST(ParseOidTextTest, StoresNoMoreThanTheCapacity) {
  std::uint32_t oid[] = {99, 99, 99};
  EXPECT_EQ(parseOidText(".1.2.3", oid, 2), 3U) << "the text's own count";
  EXPECT_EQ(oid[0], 1U);
  EXPECT_EQ(oid[1], 2U);
  EXPECT_EQ(oid[2], 99U);
  EXPECT_EQ(parseOidText(".4.5", oid, 2), 2U);
  EXPECT_EQ(oid[1], 5U);
}

}  // namespace
}  // namespace norva
