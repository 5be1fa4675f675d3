// The pure parts of the mapping tool.

#include "RawTable.h"
#include "TestSupport.h"
#include "TraceDecoder.h"
#include "View.h"

namespace norva::mapping {
namespace {

TEST(NorvamapNumbers, AreReadAsTheAgentReadsThem) {
  struct {
    const char* text;
    int column;
    std::uint64_t value;
    const char* problem;
  } const cases[] = {
      {"0x1f", kScalarType, 0x1F, ""},
      {" 10 ", kScalarType, 0x10, ""},
      {"", kScalarType, 0, "asnType '' is no hexadecimal number, read as 0"},
      {"-1", kScalarSuffix, 4294967295, "suffix1 '-1' does not fit 32 bits, read as 4294967295"},
      {"99999999999999999999", kScalarSuffix, 4294967295,
       "suffix1 '99999999999999999999' does not fit 32 bits, read as 4294967295"},
  };
  for (const auto& [text, column, value, problem] : cases) {
    const ReadNumber read = readNumber(text, kScalarLayout[static_cast<std::size_t>(column)]);
    EXPECT_EQ(read.value, value) << text;
    EXPECT_EQ(read.problem, problem);
  }
}

TEST(NorvamapView, EveryTypeHasItsValues) {
  struct {
    ValueKind kind;
    std::uint8_t objLen;
    const char* value;
    std::uint16_t type;
    std::uint16_t method;
    const char* seen;  // empty: no answer
  } const cases[] = {
      {ValueKind::kSigned, kObjLenByte, "\xFE", 0x02, 0, "-2"},
      {ValueKind::kUnsigned, kObjLenLong, "\xFF\xFF\xFF\xFF", 0x46, 0, "4294967295"},
      {ValueKind::kUnsigned, kObjLenLong, "\x0A\x01\x02\x03", 0x40, 0, "10.1.2.3"},
      {ValueKind::kText, kObjLenText20, "10.1.2.3", 0x40, 0, "10.1.2.3"},
      {ValueKind::kText, kObjLenText20, "say \"x\"\n", 0x04, 0, "\"say \\\"x\\\"\\x0a\""},
      {ValueKind::kText, kObjLenText20, "12", 0x42, 0, ""},
      {ValueKind::kUnsigned, kObjLenShort, "\x01\x02", 0x06, 0, ""},
      {ValueKind::kUnsigned, 6, "\x01\x02\x03", 0x02, 0, ""},
  };
  for (const auto& [kind, objLen, value, type, method, seen] : cases) {
    ObjValue record;
    record.setAttr(static_cast<std::uint16_t>(static_cast<unsigned>(kind) << 8));
    record.setObjLen(objLen);
    record.setText(value);
    const View view = viewOf(record, type, method);
    EXPECT_EQ(view.value, seen) << "type " << type;
    EXPECT_EQ(view.isAnswered, *seen != '\0');
  }
}

TEST(TraceDecoderTest, FramesAreFoundHoweverTheTraceIsCut) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path + "/map.db";
  test::runSql(path, test::kMakeScalarTable + test::kMakeCellTable +
                         "INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES "
                         "('0502',0,0,2,2,1,1,1,1,0,0,'Gain',0);");
  const Mapping mapping(path, kDefaultRoot);
  const std::string get = "02 07 02 05 00 00 00 00 ";
  const std::string reply = "12 04 10 01 02 05 fe ";
  const std::string event = test::trace(test::hex("00 00 00 02 00 00 00 00 00 05 02 30", 213));
  const std::string trace =
      "be careful\n\n 1.2.3\n " + get + reply + "text\n" + get + event + reply +
      "\ncmd is 1\n\nDataManage::setObjValue error obj type!01 04 02 05 09 11 "
      "04 02 05 " +
      get + "12 04 10\n02 0";
  const std::string lines =
      "be careful\n\n 1.2.3\n"
      "|get  0x0502 \"Gain\"\n|got  0x0502 \"Gain\": signed 1, -2, rw -> INTEGER -2\ntext\n"
      "|get  0x0502 \"Gain\"\n|event type 2, cleared, 0x0502 \"Gain\"\n"
      "|got  0x0502 \"Gain\": signed 1, -2, rw -> INTEGER -2\ncmd is 1\n\n"
      "DataManage::setObjValue error obj type!\n"
      "|set  0x0502 \"Gain\": signed 1, 9, rw -> INTEGER 9\n|done\n|get  0x0502 \"Gain\"\n"
      "12 04 10\n02 0\n";
  for (const std::size_t size : {1U, 7U, 100U, 10000U}) {
    std::string decoded;  // frames marked with '|'
    TraceDecoder decoder(mapping, [&decoded](const std::string& line, bool isFrame) {
      decoded += (isFrame ? "|" : "") + line + '\n';
    });
    for (std::size_t at = 0; at < trace.size(); at += size) decoder.feed(trace.substr(at, size));
    decoder.finish();
    EXPECT_EQ(decoded, lines) << size;
  }
}

}  // namespace
}  // namespace norva::mapping
