#include "ComPortAdapter.h"

#include <csignal>
#include <thread>

#include "ReplyTimer.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

class ComPortAdapterTest : public QueueTest {
 protected:
  using Operation = int (ComPortAdapter::*)(std::uint8_t*, std::size_t);

  void expectReceived(Operation operation, std::size_t length, Bytes payload) {
    EXPECT_EQ(
        printed([&] { EXPECT_EQ((adapter.*operation)(buffer, length), std::ssize(payload)); }),
        trace(payload));
    payload.resize(payload.size() + sizeof(long));
    EXPECT_EQ(Bytes(buffer, buffer + payload.size()), payload) << "zeros behind the payload";
  }
  void expectTooLong(Operation operation, std::size_t length) {
    EXPECT_EQ(printed([&] { EXPECT_EQ((adapter.*operation)(buffer, length), -1); }), kTooLong);
  }

  const ReplyTimer timer{kReplyQueueKey};
  ComPortAdapter adapter{timer};
  alignas(long) std::uint8_t buffer[sizeof(long) + 4096] = {};
  const struct Source {
    Operation operation;
    const Queue& queue;
  } sources[2] = {{&ComPortAdapter::read, replies}, {&ComPortAdapter::readAlarm, alarms}};
};

TEST_F(ComPortAdapterTest, OpenKeepsWhatWaitsUntilItIsClosed) {
  for (const Queue& queue : queues) queue.post(hex("01"));
  EXPECT_EQ(adapter.open(), 0);
  for (const Queue& queue : queues) EXPECT_EQ(queue.state().msg_qnum, 1U);
  EXPECT_EQ(adapter.close(), 0);
  for (const Queue& queue : queues) EXPECT_FALSE(queue.exists());
  { ComPortAdapter(timer).open(); }
  for (const Queue& queue : queues) EXPECT_TRUE(queue.exists()) << "they outlive the adapter";
}

TEST_F(ComPortAdapterTest, WriteStampsTheTypeTracesAndCuts) {
  for (const Bytes& payload : {hex("00 0a ff 7F"), Bytes(), pattern(3000)}) {
    const Bytes cut = pattern(3000) == payload ? pattern(2048) : payload;
    EXPECT_EQ(
        printed([&] { EXPECT_EQ(adapter.write(payload.data(), payload.size()), std::ssize(cut)); }),
        trace(cut));
    const auto message = requests.take();
    ASSERT_TRUE(message) << "an empty payload is a message all the same";
    EXPECT_EQ(message->type, 0x9999);
    EXPECT_EQ(message->payload, cut);
  }
}

TEST_F(ComPortAdapterTest, WriteOnAFullQueueReportsTheSizeAllTheSame) {
  while (requests.post(Bytes(1024)) || requests.post(Bytes(1))) {
  }
  EXPECT_EQ(printed([&] { EXPECT_EQ(adapter.write(hex("01 02 03").data(), 3), 3); }),
            "ComPortAdapter::write msg_queue error:\n01 02 03 ");
  while (const auto message = requests.take()) EXPECT_NE(message->type, 0x9999);
}

TEST_F(ComPortAdapterTest, ReceivesAnyTypeAndNoMoreThanItsLimit) {
  for (const auto& [operation, queue] : sources) {
    for (const Bytes& payload : {hex("12 04 ab"), Bytes(), pattern(4096)}) {
      std::memset(buffer, 0xEE, sizeof buffer);
      queue.post(payload, 0x7FFFFFFF);
      expectReceived(operation, 5000, payload);
    }
    queue.post(pattern(4097));
    expectTooLong(operation, 5000);
    EXPECT_EQ(queue.state().msg_qnum, 1U) << "it stays at the head";
  }
  EXPECT_TRUE(adapter.dropAlarm());
  EXPECT_FALSE(adapter.dropAlarm()) << "none is left";
}

TEST_F(ComPortAdapterTest, FlushDropsSmallMessagesUpToTheFirstLongOneWhichBlocksTheQueue) {
  EXPECT_EQ(printed([&] { adapter.flush(); }), "") << "an empty queue";
  for (const std::size_t size : {0U, 1U, 100U, 101U, 2U}) replies.post(pattern(size));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(printed([&] { adapter.flush(); }), "");
    EXPECT_EQ(replies.state().msg_qnum, 2U);
    expectTooLong(&ComPortAdapter::read, 100);
  }
  expectReceived(&ComPortAdapter::read, 101, pattern(101));
}

TEST_F(ComPortAdapterTest, ASignalEndsNoReceive) {
  struct sigaction usual, interrupting{};
  interrupting.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupting, &usual);
  std::jthread reader([this] { expectReceived(&ComPortAdapter::read, 10, hex("06")); });
  for (int i = 0; i < 20; ++i) {  // one of them while it waits
    pthread_kill(reader.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  replies.post(hex("06"));
  reader.join();
  sigaction(SIGUSR1, &usual, nullptr);
}

TEST(ReplyTimerTest, WithoutItsThreadThereIsNoLimit) {
  ReplyTimer refused(kReplyQueueKey);
  withoutThreads([&] {
    EXPECT_EQ(printed([&] { refused.limit(std::chrono::seconds(1)); }),
              "Create thread fail!\n"
              "norvaDeviceTimeout is not in force: waits for the unit have no end\n");
  });
  EXPECT_FALSE(refused.isLimited());
}

}  // namespace
}  // namespace norva::test
