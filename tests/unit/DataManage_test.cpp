#include "DataManage.h"

#include <thread>

#include "SnmpDataBase.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using Frames = std::vector<Bytes>;

constexpr char kTakenOff[] = "reply too large to receive, taken off the queue\n";

/// Plays the control process: answers each request with the next reply, further ones with an empty
/// one so that nobody waits for ever. The bytes of a reply's type are those of an acknowledgement:
/// taken for payload, they would show.
class Device {
 public:
  explicit Device(const Frames& replies) : _thread([this, replies] { serve(replies); }) {}
  ~Device() { received(); }

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

  void serve(const Frames& replies) {
    for (auto request = _requests.take(0); request->type != kEnd; request = _requests.take(0)) {
      const std::size_t turn = _received.size();
      _received.push_back(request->payload);
      long type = 0;
      std::memset(&type, 0x10 + request->payload[0], sizeof type);
      Queue(kReplyQueueKey).post(turn < replies.size() ? replies[turn] : Bytes(), type);
    }
  }

  const Queue _requests{kRequestQueueKey};
  Frames _received;
  std::thread _thread;
};

class DataManageTest : public QueueTest {
 protected:
  static void SetUpTestSuite() {
    if (manage != nullptr) return;  // the suite may be run again in one process
    EXPECT_EQ(printed([] { manage = DataManage::getInstance(); }),
              "_pComPortAdapter->open() end....\n");
    const TemporaryDirectory directory;
    const std::string path = directory.path + "/map.db";
    runSql(path, kMakeScalarTable + kMakeCellTable +
                     "INSERT INTO SNMP_GENERAL_OBJ_TABLE"
                     " SELECT column1, 0, 0, 2, 2, 1, 1, 1, 1, column2, 0, 'n', 0"
                     " FROM (VALUES ('0101', '0'), ('0102', '2004'), ('0103', '1'),"
                     " ('0104', '1000'))");
    static const SnmpDataBase loaded(path.c_str());
    catalogue = &loaded;
  }

  static inline DataManage* manage = nullptr;
  static inline const SnmpDataBase* catalogue = nullptr;
};

TEST_F(DataManageTest, GetObjValueTakesTheFirstReplyAfterItsRequest) {
  const auto check = [this](const Bytes& reply, int result, const std::string& output,
                            const Bytes& expected) {
    replies.post(hex("12 04 00 00 02 01 99"));  // stale
    Device device({reply});
    ObjValue record;
    std::memset(static_cast<void*>(&record), 0xEE, sizeof record);
    EXPECT_EQ(printed([&] { EXPECT_EQ(manage->getObjValue(0x0102, record), result); }),
              "02 07 02 01 00 00 00 00 " + output);
    EXPECT_EQ(bytesOf(record), expected);
    EXPECT_EQ(device.received(), (Frames{hex("02 07 02 01 00 00 00 00")}));
  };
  const Bytes before(70, 0xEE);
  check(hex("12 05 10 01 77 77 34 12"), 0, "12 05 10 01 77 77 34 12 ",
        hex("05 ee ee 01 10 ee 12 34", 70, 0xEE));  // another object's id is not looked at
  check(hex("12 05 00 02 01 01 41"), 0, "12 05 00 02 01 01 41 ", hex("05 ee ee 02 00 ee 41", 70));
  check(hex("11 04 00 00 34 f2 05"), 255,
        "11 04 00 00 34 f2 05 ERR: DatabaseFacade::select:  error!  cmd=11  oid=0xf234\n", before);
  check({}, 255, "ERR: DatabaseFacade::select:  error!  cmd=0  oid=0x0000\n", before);
  check(hex("12 06 10 00 01 01 01 02 03"), 255,
        "12 06 10 00 01 01 01 02 03 ERR: DatabaseFacade::select: type unsupported!\n",
        hex("06 ee ee 00 10", 70, 0xEE));
  for (int i = 0; i < 2; ++i) {  // the second time it would still be the first one's
    check(pattern(1025), 255,
          std::string(kTooLong) + "DataManage::getObjValue  readData error!\n" + kTakenOff, before);
  }
}

TEST_F(DataManageTest, SetObjValueSendsTheFrameAndJudgesTheReply) {
  const std::string sent = "cmd is 1, objLen is 7 \n01 07 02 01 04 03 02 01 ";
  const auto check = [this](std::uint8_t objLen, const Bytes& reply, int result,
                            const std::string& output) {
    replies.post(hex("11"));  // stale
    const Device device({reply});
    ObjValue record;
    record.setObjLen(objLen);
    record.setInteger32(0x01020304);
    EXPECT_EQ(printed([&] { EXPECT_EQ(manage->setObjValue(0x0102, record), result); }), output);
  };
  check(7, hex("11 07 02 01"), 0, sent + "11 07 02 01 ");
  check(7, Bytes(4096, 0x11), 0, sent + trace(Bytes(4096, 0x11)));
  check(7, hex("12 11"), 255, sent + "12 11 ");
  check(7, {}, 255, sent);
  check(2, hex("11"), 0,
        "cmd is 1, objLen is 2 \n\nDataManage::setObjValue error obj type!01 02 02 11 ");
  check(4, hex("11"), 0, "cmd is 1, objLen is 4 \n01 04 02 01 01 11 ");
  check(
      6, hex("11"), 0,
      "cmd is 1, objLen is 6 \n\nDataManage::setObjValue error obj type!01 06 02 01 01 02 03 11 ");
  check(7, Bytes(4097, 0x11), 255, sent + kTooLong + kTakenOff);
}

TEST_F(DataManageTest, SetObjValueMarksTheHeartbeatObjectsEvenIfRefused) {
  for (const int oid : {0x0FF9, 0x0FFA, 0x0FFB}) {
    DataManage::heartBeatIntervalChanged = DataManage::heartBeatSwFlagChanged = false;
    const Device device({hex("00")});
    printed([&] { manage->setObjValue(static_cast<std::uint16_t>(oid), ObjValue()); });
    EXPECT_EQ(DataManage::heartBeatIntervalChanged, oid == 0x0FFA) << oid;
    EXPECT_EQ(DataManage::heartBeatSwFlagChanged, oid == 0x0FFB) << oid;
  }
}

TEST_F(DataManageTest, GetSnmpValueNormalisesAndConverts) {
  const auto check = [](std::uint16_t oid, const Bytes& reply, int result, int objLen,
                        const Bytes& value) {
    SCOPED_TRACE(trace(reply));
    const Device device({reply});
    ObjValue record;
    record.setOid(oid);
    int actual = 1;
    printed([&] { actual = manage->getSnmpValue(record, *catalogue); });
    EXPECT_EQ(actual, result);
    EXPECT_EQ(record.objLen(), objLen);
    EXPECT_EQ(Bytes(record.value(), record.value() + 64), value);
  };
  check(0x0101, hex("12 04 00 01 01 01 fe"), 0, 7, hex("ff ff ff fe", 64));
  check(0x0101, hex("12 04 00 00 01 01 fe"), 0, 7, hex("00 00 00 fe", 64));
  check(0x0101, hex("12 05 00 01 01 01 fe ff"), 0, 7, hex("ff ff ff fe", 64));
  check(0x0101, hex("12 05 00 00 01 01 fe ff"), 0, 7, hex("00 00 ff fe", 64));
  check(0x0101, hex("12 07 00 01 01 01 04 03 02 81"), 0, 7, hex("81 02 03 04", 64));
  check(0x0101, hex("12 05 00 03 01 01 34 12"), 0, 5, hex("12 34", 64));
  check(0x0101, hex("12 17 00 02 01 01 41 42 43"), 0, 6, hex("41 42 43", 64));
  check(0x0101, hex("12 ff 00 02 01 01", 6 + 252, 'A'), 0, 67, Bytes(64, 'A'));
  check(0x0102, hex("12 05 00 00 02 01 d2 04"), 0, 5, hex("31 32 2e 33 34", 64));
  check(0x0103, hex("12 07 00 00 03 01 01 00 00 0a"), 0, 8, hex("31 30 2e 30 2e 30 2e 31", 64));
  // What a short reply lacks reads as zeros.
  check(0x0101, hex("12 07 00 00 01 01 04"), 0, 7, hex("00 00 00 04", 64));
  check(0x0101, hex("12 07"), 0, 7, Bytes(64));
  // A text shorter than its own overhead.
  check(0x0101, hex("12 01 00 02 01 01 41"), 0, 3, Bytes(64));
  // Not mapped; an integer of no integer length.
  check(0x0999, hex("12 04 00 00 99 09 05"), -1, 4, hex("05", 64));
  check(0x0101, hex("12 06 00 00 01 01"), -1, 6, Bytes(64));
}

TEST_F(DataManageTest, SetSnmpValueConvertsNarrowsAndWrites) {
  // `current` is the device's answer to the read, `reply` that to the set request `frame`.
  const auto check = [](std::uint16_t oid, const char* current, const auto& value,
                        const char* frame, const char* reply, int result) {
    SCOPED_TRACE(testing::Message() << current << " " << value);
    Device device({hex(current), hex(reply)});
    ObjValue record;
    record.setOid(oid);
    record.setObjLen(99);    // the caller's length and
    record.setAttr(0x0110);  // attributes count for nothing
    if constexpr (std::is_same_v<decltype(value), const std::uint32_t&>) {
      record.setInteger32(value);
    } else {
      record.setText(value);
    }
    int actual = 1;
    printed([&] { actual = manage->setSnmpValue(record, *catalogue); });
    EXPECT_EQ(actual, result);
    EXPECT_EQ(record.objLen(), hex(current)[1]) << "the device's, also when refused";
    const auto& received = device.received();
    ASSERT_FALSE(received.empty());
    EXPECT_EQ(received.front()[0], 0x02) << "read first";
    EXPECT_EQ(Frames(received.begin() + 1, received.end()),
              *frame != 0 ? Frames{hex(frame)} : Frames{});
  };
  check(0x0101, "12 04 10", 300U, "01 04 01 01 2c", "11", 0);
  check(0x0101, "12 05 10", 0x12345U, "01 05 01 01 45 23", "11", 0);
  check(0x0101, "12 07 10 01", 0x12345678U, "01 07 01 01 78 56 34 12", "11", 0);
  check(0x0101, "12 04 10 03", 0x1FFU, "01 04 01 01 ff", "11", 0);
  check(0x0101, "12 0b 10 02", "HI", "01 0b 01 01 48 49 00 00 00 00 00 00", "11", 0);
  check(0x0101, "12 06 10 02", "ABC", "01 06 01 01 41 42 43", "11", 0);
  check(0x0102, "12 05 10", "0.29", "01 05 02 01 1c 00", "11", 0);
  // The device knows whether the integer is signed.
  check(0x0104, "12 05 10 01", 0xFFFFFFFBU, "01 05 04 01 ce ff", "11", 0);
  check(0x0104, "12 07 10", 0xFFFFFFFBU, "01 07 04 01 ff ff ff ff", "11", 0);
  // Not acknowledged.
  check(0x0101, "12 04 10", 1U, "01 04 01 01 01", "12", 255);
  // Too long, read-only, not mapped, no decimal text, no integer's length, unreadable.
  check(0x0101, "12 06 10 02", "ABCD", "", "", -1);
  check(0x0101, "12 04 ef 00", 1U, "", "", -1);
  check(0x0999, "12 04 10", 1U, "", "", -1);
  check(0x0102, "12 05 10", "1e3", "", "", -1);
  check(0x0101, "12 06 10", 1U, "", "", -1);
  check(0x0101, "11 00 10", 1U, "", "", -1);
}

}  // namespace
}  // namespace norva::test
