#include "DataManage.h"

#include <future>
#include <thread>

#include "SnmpDataBase.h"
#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::hex;
using test::pattern;
using test::printed;
using test::Queue;
using Frames = std::vector<Bytes>;

/// Plays the control process: answers each request with the next reply of a script, further ones
/// with an empty reply so that nobody waits for ever.
class Device {
 public:
  explicit Device(std::vector<test::Message> script) : _script(std::move(script)) {
    _thread = std::thread([this] { serve(); });
  }
  ~Device() { received(); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Every request frame. Ends the device.
  const Frames& received() {
    if (_thread.joinable()) {
      _requests.post({}, kEnd);
      _thread.join();
    }
    return _received;
  }

 private:
  static constexpr long kEnd = 1;

  void serve() {
    while (const auto request = _requests.take(0)) {
      if (request->type == kEnd) return;
      const std::size_t turn = _received.size();
      _received.push_back(request->payload);
      const test::Message reply = turn < _script.size() ? _script[turn] : test::Message{1, {}};
      _replies.post(reply.payload, reply.type);
    }
  }

  const Queue _requests{kRequestQueueKey};
  const Queue _replies{kReplyQueueKey};
  const std::vector<test::Message> _script;
  Frames _received;
  std::thread _thread;
};

std::vector<test::Message> script(std::initializer_list<Bytes> payloads) {
  std::vector<test::Message> messages;
  for (const Bytes& payload : payloads) messages.push_back({1, payload});
  return messages;
}

/// A message type whose every byte in memory is `byte`: taken for payload, it would show.
long typeOf(int byte) {
  long type = 0;
  std::memset(&type, byte, sizeof type);
  return type;
}

class DataManageTest : public test::QueueTest {
 protected:
  static void SetUpTestSuite() {
    if (manage == nullptr) {  // the suite may be run again in one process
      openingOutput = printed([] { manage = DataManage::getInstance(); });
    }
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("map.db");
    std::string sql = std::string(test::kMakeScalarTable) + test::kMakeCellTable;
    for (const char* object :
         {"0101','0", "0102','2004", "0103','1", "0104','1000", "0105','1004"}) {
      const std::string row(object);
      sql += "INSERT INTO SNMP_GENERAL_OBJ_TABLE VALUES('" + row.substr(0, 4) +
             "','0','0','2','2','1','1','1','1" + row.substr(4) + "','0','n','0');";
    }
    test::runSql(path, sql);
    catalogue = new SnmpDataBase(path.c_str());
  }
  static void TearDownTestSuite() {
    delete catalogue;
    catalogue = nullptr;
  }

  static inline DataManage* manage = nullptr;
  static inline SnmpDataBase* catalogue = nullptr;
  static inline std::string openingOutput;
};

TEST_F(DataManageTest, OneInstanceOpensTheChannel) {
  EXPECT_EQ(openingOutput, "_pComPortAdapter->open() end....\n");
  EXPECT_EQ(DataManage::getInstance(), manage);
}

TEST_F(DataManageTest, GetObjValueTakesTheFirstReplyAfterItsRequest) {
  replies.post(hex("12 04 00 00 02 01 99"));  // stale
  Device device(script({hex("12 05 10 01 77 77 34 12")}));
  ObjValue record;
  record.setOid(0x4321);
  int result = -1;
  EXPECT_EQ(printed([&] { result = manage->getObjValue(0x0102, record); }),
            "02 07 02 01 00 00 00 00 12 05 10 01 77 77 34 12 ");
  EXPECT_EQ(result, 0) << "another object's id in the reply is not looked at";
  EXPECT_EQ(device.received(), (Frames{hex("02 07 02 01 00 00 00 00")}));
  Bytes expected = hex("05 43 21 01 10 00 12 34");
  expected.resize(70, 0);
  EXPECT_EQ(test::bytesOf(record), expected);
}

TEST_F(DataManageTest, GetObjValueReportsItsFailures) {
  const std::string request = "02 07 01 01 00 00 00 00 ";
  const struct {
    test::Message reply;
    std::string output;
    const char* recordStart;
  } cases[] = {
      {{1, hex("11 04 00 00 34 f2 05")},
       "11 04 00 00 34 f2 05 ERR: DatabaseFacade::select:  error!  cmd=11  oid=0xf234\n",
       "ee ee ee ee ee ee ee ee"},
      {{typeOf(0x12), {}},
       "ERR: DatabaseFacade::select:  error!  cmd=0  oid=0x0000\n",
       "ee ee ee ee ee ee ee ee"},
      {{1, hex("12 06 10 00 01 01 01 02 03")},
       "12 06 10 00 01 01 01 02 03 ERR: DatabaseFacade::select: type unsupported!\n",
       "06 ee ee 00 10 ee ee ee"},
      {{1, pattern(1025)},
       "called, failed: errno: Argument list too long, error code:7\n"
       "DataManage::getObjValue  readData error!\n",
       "ee ee ee ee ee ee ee ee"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.output);
    replies.remove();
    const Device device({c.reply});
    ObjValue record;
    std::memset(static_cast<void*>(&record), 0xEE, sizeof record);
    int result = 0;
    EXPECT_EQ(printed([&] { result = manage->getObjValue(0x0101, record); }), request + c.output);
    EXPECT_EQ(result, 255);
    Bytes expected = hex(c.recordStart);
    expected.resize(70, 0xEE);
    EXPECT_EQ(test::bytesOf(record), expected);
  }
}

TEST_F(DataManageTest, AShortReplyReadsAsZeros) {
  const struct {
    test::Message reply;
    Bytes value;
  } cases[] = {
      {{typeOf(0x33), hex("12 07 00 00 01 01 04")}, hex("00 00 00 04")},
      {{typeOf(0x33), hex("12 07")}, hex("00 00 00 00")},
      {{typeOf(0x33), hex("12 07 00 02 01 01 41")}, hex("41 00 00 00")},  // text
  };
  for (const auto& c : cases) {
    const Device device({c.reply});
    ObjValue record;
    record.setText(std::string(64, 'x'));
    int result = -1;
    printed([&] { result = manage->getObjValue(0x0101, record); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Bytes(record.value(), record.value() + 4), c.value);
  }
}

TEST_F(DataManageTest, SetObjValueSendsTheFrameAndJudgesTheReply) {
  const std::string sent = "cmd is 1, objLen is 7 \n01 07 02 01 04 03 02 01 ";
  const struct {
    test::Message reply;
    int result;
    std::string output;
  } cases[] = {
      {{1, hex("11")}, 0, "11 "},
      {{1, hex("11 07 02 01")}, 0, "11 07 02 01 "},
      {{1, Bytes(4096, 0x11)}, 0, ""},
      {{1, hex("12 11")}, 255, "12 11 "},
      {{typeOf(0x11), {}}, 255, ""},
      {{1, Bytes(4097, 0x11)},
       255,
       "called, failed: errno: Argument list too long, error code:7\n"},
  };
  for (auto c : cases) {
    SCOPED_TRACE(testing::Message() << c.reply.payload.size() << " bytes");
    if (c.reply.payload.size() == 4096) {
      for (int i = 0; i < 4096; ++i) c.output += "11 ";
    }
    replies.remove();
    Device device({c.reply});
    ObjValue record;
    record.setObjLen(7);
    record.setInteger32(0x01020304);
    int result = -1;
    EXPECT_EQ(printed([&] { result = manage->setObjValue(0x0102, record); }), sent + c.output);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(device.received(), (Frames{hex("01 07 02 01 04 03 02 01")}));
  }
}

TEST_F(DataManageTest, SetObjValueComplainsOfOtherLengthsAndSendsThem) {
  ObjValue record;
  record.setText("ABCDEFGHIJKLMNOPQRST");
  const struct {
    std::uint8_t objLen;
    const char* printed;
  } cases[] = {
      {23,
       "cmd is 1, objLen is 23 \n01 17 02 01 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 51 "
       "52 53 54 11 "},
      {6,
       "cmd is 1, objLen is 6 \n\nDataManage::setObjValue error obj type!01 06 02 01 41 42 43 "
       "11 "},
  };
  for (const auto& c : cases) {
    const Device device(script({hex("11")}));
    record.setObjLen(c.objLen);
    EXPECT_EQ(printed([&] { manage->setObjValue(0x0102, record); }), c.printed);
  }
}

TEST_F(DataManageTest, SetObjValueMarksTheHeartbeatObjectsEvenIfRefused) {
  const struct {
    std::uint16_t oid;
    bool interval;
    bool swFlag;
  } cases[] = {{0x0FF9, false, false}, {0x0FFA, true, false}, {0x0FFB, false, true}};
  for (const auto& c : cases) {
    DataManage::heartBeatIntervalChanged = DataManage::heartBeatSwFlagChanged = false;
    Device device(script({hex("00")}));
    ObjValue record;
    record.setObjLen(4);
    printed([&] { manage->setObjValue(c.oid, record); });
    EXPECT_EQ(DataManage::heartBeatIntervalChanged, c.interval) << c.oid;
    EXPECT_EQ(DataManage::heartBeatSwFlagChanged, c.swFlag) << c.oid;
    EXPECT_EQ(device.received().size(), 1U);
  }
}

TEST_F(DataManageTest, ReadAlarmDoesNotWaitBehindADeviceRequest) {
  ObjValue record;
  auto get = std::async(std::launch::async, [&] { return manage->getObjValue(1, record); });
  EXPECT_TRUE(requests.take(0)) << "the device stays silent meanwhile";
  alarms.post(hex("0a 0b"));
  alignas(long) std::uint8_t buffer[sizeof(long) + 213];
  EXPECT_EQ(manage->readAlarm(buffer, 213), 2);
  EXPECT_EQ(Bytes(buffer, buffer + 2), hex("0a 0b"));
  replies.post(hex("12 04 00 00 01 00 01"));
  EXPECT_EQ(get.get(), 0);
}

TEST_F(DataManageTest, GetSnmpValueNormalisesAndConverts) {
  Bytes longText = hex("12 ff 00 02 01 01");
  longText.resize(6 + 252, 'A');
  const struct {
    const char* name;
    std::uint16_t oid;
    Bytes reply;
    int objLen;
    Bytes value;  // zeros follow
  } cases[] = {
      {"signed byte", 0x0101, hex("12 04 00 01 01 01 fe"), 7, hex("ff ff ff fe")},
      {"unsigned byte", 0x0101, hex("12 04 00 00 01 01 fe"), 7, hex("00 00 00 fe")},
      {"signed short", 0x0101, hex("12 05 00 01 01 01 fe ff"), 7, hex("ff ff ff fe")},
      {"unsigned short", 0x0101, hex("12 05 00 00 01 01 fe ff"), 7, hex("00 00 ff fe")},
      {"long", 0x0101, hex("12 07 00 01 01 01 04 03 02 81"), 7, hex("81 02 03 04")},
      {"kind 3 keeps its width", 0x0101, hex("12 05 00 03 01 01 34 12"), 5, hex("12 34")},
      {"text", 0x0101, hex("12 17 00 02 01 01 41 42 43"), 6, hex("41 42 43")},
      {"text over the record", 0x0101, longText, 67, Bytes(64, 'A')},
      {"fixed point", 0x0102, hex("12 05 00 00 02 01 d2 04"), 5, hex("31 32 2e 33 34")},
      {"address", 0x0103, hex("12 07 00 00 03 01 01 00 00 0a"), 8, hex("31 30 2e 30 2e 30 2e 31")},
      {"no value bytes", 0x0101, hex("12 07 00 00"), 7, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Device device(script({c.reply}));
    ObjValue record;
    record.setOid(c.oid);
    int result = -1;
    printed([&] { result = manage->getSnmpValue(record, *catalogue); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(record.objLen(), c.objLen);
    Bytes expected = c.value;
    expected.resize(64, 0);
    EXPECT_EQ(Bytes(record.value(), record.value() + 64), expected);
  }
}

TEST_F(DataManageTest, GetSnmpValueSaysWhatItConvertsAndRefusesSilently) {
  const struct {
    std::uint16_t oid;
    const char* reply;
    int result;
    const char* output;
  } cases[] = {
      {0x0102, "12 04 00 00 02 01 05", 0,
       "02 07 02 01 00 00 00 00 12 04 00 00 02 01 05 "
       "norvasnmp:getSnmpValue oid=0x102,covMethod=8196\n"},
      {0x0999, "12 04 00 00 99 09 05", -1, "02 07 99 09 00 00 00 00 12 04 00 00 99 09 05 "},
      {0x0101, "12 06 00 00 01 01", -1,
       "02 07 01 01 00 00 00 00 12 06 00 00 01 01 ERR: DatabaseFacade::select: type "
       "unsupported!\n"},
  };
  for (const auto& c : cases) {
    Device device(script({hex(c.reply)}));
    ObjValue record;
    record.setOid(c.oid);
    int result = 1;
    EXPECT_EQ(printed([&] { result = manage->getSnmpValue(record, *catalogue); }), c.output);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(device.received().size(), 1U);
  }
}

TEST_F(DataManageTest, GetSnmpValueGoesOnWithTheRecordAfterAFailedRead) {
  const Device device(script({hex("11")}));
  ObjValue record;
  record.setOid(0x0102);
  record.setObjLen(7);
  record.setInteger32(1234);
  int result = -1;
  printed([&] { result = manage->getSnmpValue(record, *catalogue); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(record.text(), "12.34");
}

TEST_F(DataManageTest, SetSnmpValueConvertsNarrowsAndWrites) {
  const struct {
    const char* name;
    std::uint16_t oid;
    const char* current;  // the device's answer to the read
    std::string text;     // the value to write; empty: `integer`
    std::uint32_t integer;
    const char* frame;  // the set request; empty: none
    const char* reply;  // the device's answer to it
    int result;
  } cases[] = {
      {"byte keeps the low byte", 0x0101, "12 04 10 00 01 01 00", "", 300, "01 04 01 01 2c", "11",
       0},
      {"short", 0x0101, "12 05 10 00 01 01 00 00", "", 0x12345, "01 05 01 01 45 23", "11", 0},
      {"long", 0x0101, "12 07 10 01", "", 0x12345678, "01 07 01 01 78 56 34 12", "11", 0},
      {"kind 3 as an integer", 0x0101, "12 04 10 03", "", 0x1FF, "01 04 01 01 ff", "11", 0},
      {"the device's sign", 0x0104, "12 05 10 01", "", 0xFFFFFFFB, "01 05 04 01 ce ff", "11", 0},
      {"the device's lack of one", 0x0104, "12 07 10 00", "", 0xFFFFFFFB, "01 07 04 01 ff ff ff ff",
       "11", 0},
      {"decimal text", 0x0102, "12 05 10 00", "0.29", 0, "01 05 02 01 1c 00", "11", 0},
      {"short text", 0x0101, "12 0b 10 02", "HI", 0, "01 0b 01 01 48 49 00 00 00 00 00 00", "11",
       0},
      {"text that just fits", 0x0101, "12 0b 10 02", "ABCDEFGH", 0,
       "01 0b 01 01 41 42 43 44 45 46 47 48", "11", 0},
      {"not acknowledged", 0x0101, "12 04 10 00", "", 1, "01 04 01 01 01", "12", 255},
      {"text too long", 0x0101, "12 0b 10 02", "ABCDEFGHIJ", 0, "", "", -1},
      {"read-only", 0x0101, "12 04 ef 00", "", 1, "", "", -1},
      {"not mapped", 0x0999, "12 04 10 00", "", 1, "", "", -1},
      {"bad decimal text", 0x0102, "12 05 10 00", "1e3", 0, "", "", -1},
      {"integer of no integer length", 0x0101, "12 06 10 00", "", 1, "", "", -1},
      {"unreadable", 0x0101, "11 00 10 00", "", 1, "", "", -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Device device(script({hex(c.current), hex(c.reply)}));
    ObjValue record;
    record.setOid(c.oid);
    record.setObjLen(99);    // the caller's length and
    record.setAttr(0x0110);  // attributes count for nothing
    if (c.text.empty()) {
      record.setInteger32(c.integer);
    } else {
      record.setText(c.text);
    }
    int result = 1;
    printed([&] { result = manage->setSnmpValue(record, *catalogue); });
    EXPECT_EQ(result, c.result);
    const auto& received = device.received();
    ASSERT_FALSE(received.empty());
    EXPECT_EQ(received.front()[0], 0x02) << "read first";
    EXPECT_EQ(record.objLen(), hex(c.current)[1]) << "the device's, also when refused";
    EXPECT_EQ(Frames(received.begin() + 1, received.end()),
              *c.frame != 0 ? Frames{hex(c.frame)} : Frames{});
  }
}

}  // namespace
}  // namespace norva
