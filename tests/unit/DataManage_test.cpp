#include "DataManage.h"

#include <thread>

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
  }

  static inline DataManage* manage = nullptr;
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
  // A text that is longer than the reply and the record.
  check(hex("12 ff 00 02 01 01 41"), 0, "12 ff 00 02 01 01 41 ", hex("ff ee ee 02 00 ee 41", 70));
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

}  // namespace
}  // namespace norva::test
