#include "DataManage.h"

#include <atomic>
#include <thread>

#include "TestSupport.h"

namespace norva::test {
namespace {

constexpr char kTakenOff[] = "reply too large to receive, taken off the queue\n";

/// The bytes of a reply's type are those of an acknowledgement: taken for payload, they would show.
constexpr long kReplyType = 0x11111111;

class DataManageTest : public QueueTest {
 protected:
  static void SetUpTestSuite() {
    if (manage != nullptr) return;  // the suite may be run again in one process
    // Left by an earlier agent, and by somebody else.
    const Queue requests(kRequestQueueKey);
    for (const long type : {AGENT_MSG_TYPE, 1L, AGENT_MSG_TYPE}) requests.post(hex("02"), type);
    EXPECT_EQ(printed([] { manage = DataManage::getInstance(); }),
              "_pComPortAdapter->open() end....\n");
    EXPECT_EQ(requests.take()->type, 1);
    EXPECT_FALSE(requests.take());
  }

  static inline DataManage* manage = nullptr;
};

TEST_F(DataManageTest, SetObjValueSendsTheFrameAndJudgesTheReply) {
  const std::string sent = "cmd is 1, objLen is 7 \n01 07 02 01 04 03 02 01 ";
  const auto check = [this](std::uint8_t objLen, const Bytes& reply, int result,
                            const std::string& output) {
    replies.post(hex("11"));  // stale
    const std::jthread device([&] {
      requests.take(0);
      replies.post(reply, kReplyType);
    });
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

TEST_F(DataManageTest, AReadOfStartUpIsRepeatedThreeTimesWhereTheQueuesAreMadeAnew) {
  for (const int removals : {3, 4}) {
    std::atomic<bool> isDone = false;
    std::jthread device([&] {
      requests.take(0);
      for (int i = 1; i <= removals; ++i) {
        do {  // until the agent has noticed
          replies.remove();
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        } while (!isDone && !requests.take());
      }
      replies.post(hex("12 04 10 00 02 01 2a"));
    });
    ObjValue record;
    printed([&] {
      EXPECT_EQ(manage->getObjValue(0x0102, record), removals == 3 ? 0 : DataManage::kFailed);
      isDone = true;
      device.join();
    });
    EXPECT_EQ(record.value()[0], removals == 3 ? 0x2A : 0);
  }
}

}  // namespace
}  // namespace norva::test
