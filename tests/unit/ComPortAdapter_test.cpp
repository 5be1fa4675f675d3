#include "ComPortAdapter.h"

#include <chrono>
#include <future>

#include "TestSupport.h"

namespace norva {
namespace {

using test::Bytes;
using test::hex;
using test::pattern;
using test::printed;
using test::Queue;

constexpr std::size_t kTypeSize = sizeof(long);
constexpr char kTooLong[] = "called, failed: errno: Argument list too long, error code:7\n";

struct Received {
  int result = 0;
  Bytes buffer;
  std::string output;
};

class ComPortAdapterTest : public test::QueueTest {
 protected:
  using Operation = int (ComPortAdapter::*)(std::uint8_t*, std::size_t);

  Received receive(Operation operation, std::size_t length) {
    alignas(long) std::uint8_t buffer[kTypeSize + 4096];
    std::memset(buffer, 0xEE, sizeof buffer);
    Received received;
    received.output = printed([&] { received.result = (adapter.*operation)(buffer, length); });
    received.buffer.assign(buffer, buffer + sizeof buffer);
    return received;
  }
  static Bytes start(const Received& received, std::size_t size) {
    return {received.buffer.begin(), received.buffer.begin() + static_cast<std::ptrdiff_t>(size)};
  }

  ComPortAdapter adapter;
  const struct Source {
    Operation operation;
    Queue queue;
  } sources[2] = {{&ComPortAdapter::read, replies}, {&ComPortAdapter::readAlarm, alarms}};
};

TEST_F(ComPortAdapterTest, OpenKeepsWhatWaitsAndASecondOpenStartsAnew) {
  const auto postAll = [this] {
    for (const Queue& queue : {requests, replies, alarms}) queue.post(hex("01"));
  };
  postAll();
  EXPECT_EQ(adapter.open(), 0);
  for (const Queue& queue : {requests, replies, alarms}) EXPECT_FALSE(queue.empty());

  EXPECT_EQ(adapter.open(), 0);
  for (const Queue& queue : {requests, replies, alarms}) {
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.mode(), 0666U);
  }
  postAll();
  EXPECT_EQ(adapter.close(), 0);
  for (const Queue& queue : {requests, replies, alarms}) EXPECT_FALSE(queue.exists());
}

TEST_F(ComPortAdapterTest, TheQueuesOutliveTheAdapter) {
  { ComPortAdapter().open(); }
  for (const Queue& queue : {requests, replies, alarms}) EXPECT_TRUE(queue.exists());
}

TEST_F(ComPortAdapterTest, WriteStampsTheTypeAndTracesThePayload) {
  int result = 0;
  const Bytes payload = hex("00 0a ff 7F");
  EXPECT_EQ(printed([&] { result = adapter.write(payload.data(), 4); }), "00 0a ff 7f ");
  EXPECT_EQ(result, 4);
  const auto message = requests.take();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->type, 0x9999);
  EXPECT_EQ(message->payload, payload);

  EXPECT_EQ(printed([&] { result = adapter.write(payload.data(), 0); }), "");
  EXPECT_EQ(result, 0);
  const auto empty = requests.take();
  ASSERT_TRUE(empty) << "an empty payload is a message all the same";
  EXPECT_EQ(empty->type, 0x9999);
  EXPECT_TRUE(empty->payload.empty());
}

TEST_F(ComPortAdapterTest, WriteCutsAtItsLimit) {
  const Bytes payload = pattern(3000);
  int result = 0;
  const std::string output = printed([&] { result = adapter.write(payload.data(), 3000); });
  EXPECT_EQ(result, 2048);
  EXPECT_EQ(output.size(), 2048U * 3);
  const auto message = requests.take();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->payload, pattern(2048));
}

TEST_F(ComPortAdapterTest, WriteOnAFullQueueReportsTheSizeAllTheSame) {
  while (requests.tryPost(Bytes(1024))) {
  }
  while (requests.tryPost(Bytes(1))) {
  }
  int result = 0;
  EXPECT_EQ(printed([&] { result = adapter.write(hex("01 02 03").data(), 3); }),
            "ComPortAdapter::write msg_queue error:\n01 02 03 ");
  EXPECT_EQ(result, 3);
  while (const auto message = requests.take()) EXPECT_NE(message->type, 0x9999);
}

TEST_F(ComPortAdapterTest, ReceivesAnyTypeStripsItAndTracesThePayload) {
  for (const Source& source : sources) {
    source.queue.post(hex("12 04 ab"), 0x7FFFFFFF);
    const Received received = receive(source.operation, 1024);
    EXPECT_EQ(received.result, 3);
    EXPECT_EQ(received.output, "12 04 ab ");
    Bytes expected = hex("12 04 ab");
    expected.resize(3 + kTypeSize, 0);
    EXPECT_EQ(start(received, expected.size()), expected) << "zeros behind a short message";

    source.queue.post({}, 0x12121212);
    const Received empty = receive(source.operation, 1024);
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.output, "");
    EXPECT_EQ(start(empty, kTypeSize), Bytes(kTypeSize, 0)) << "the type is not a payload";
  }
}

TEST_F(ComPortAdapterTest, ReceivesNoMoreThanItsLimit) {
  for (const Source& source : sources) {
    source.queue.post(pattern(4096));
    const Received received = receive(source.operation, 5000);
    EXPECT_EQ(received.result, 4096);
    EXPECT_EQ(start(received, 4096), pattern(4096));
    EXPECT_EQ(received.output.size(), 4096U * 3);

    source.queue.post(pattern(4097));
    const Received refused = receive(source.operation, 5000);
    EXPECT_EQ(refused.result, -1);
    EXPECT_EQ(refused.output, kTooLong);
    EXPECT_FALSE(source.queue.empty()) << "it stays at the head";
  }
}

TEST_F(ComPortAdapterTest, AReplyTooLongToReadOrFlushBlocksTheQueue) {
  replies.post(pattern(101));
  for (int i = 0; i < 2; ++i) {
    const Received received = receive(&ComPortAdapter::read, 100);
    EXPECT_EQ(received.result, -1);
    EXPECT_EQ(received.output, kTooLong);
    adapter.flush();
    ASSERT_FALSE(replies.empty());
  }
  EXPECT_EQ(receive(&ComPortAdapter::read, 101).result, 101);
}

TEST_F(ComPortAdapterTest, FlushDropsSmallMessagesUpToTheFirstLongOne) {
  EXPECT_EQ(printed([&] { adapter.flush(); }), "") << "an empty queue";
  for (const std::size_t size : {0U, 1U, 100U, 101U, 2U}) replies.post(pattern(size));
  EXPECT_EQ(printed([&] { adapter.flush(); }), "");
  for (const std::size_t size : {101U, 2U}) {
    const auto message = replies.take();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->payload.size(), size);
  }
  EXPECT_TRUE(replies.empty());
}

TEST_F(ComPortAdapterTest, ARemovedQueueIsMadeAgainOrPickedUp) {
  adapter.open();
  for (const Queue& queue : {requests, replies, alarms}) queue.remove();
  adapter.flush();
  EXPECT_EQ(replies.mode(), 0666U);
  printed([&] { adapter.write(hex("05").data(), 1); });
  EXPECT_EQ(requests.mode(), 0666U);
  EXPECT_TRUE(requests.take());

  for (const Source& source : sources) {
    source.queue.remove();
    source.queue.post(hex("06"));  // makes the queue anew, as the control process does
    EXPECT_EQ(receive(source.operation, 10).result, 1);
  }
}

TEST_F(ComPortAdapterTest, AReceiveWaitsForAMessage) {
  for (const Source& source : sources) {
    auto waiting = std::async(std::launch::async, [&] { return receive(source.operation, 10); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    source.queue.post(hex("07"));
    EXPECT_EQ(waiting.get().result, 1);
  }
}

}  // namespace
}  // namespace norva
