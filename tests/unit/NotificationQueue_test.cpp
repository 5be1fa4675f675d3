#include "NotificationQueue.h"

#include <future>
#include <thread>

#include "AgentStatistics.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience(10000);
/// How long a wrong queue is given to show itself.
constexpr milliseconds kGrace(30);
constexpr milliseconds kStall(300), kForsaken(100);

Notification named(int number) {
  return {{}, std::to_string(number), {}};
}

class NotificationQueueTest : public testing::Test {
 protected:
  NotificationQueueTest() { queue.sessionStarted(); }

  void pushUpTo(int last) {
    while (pushed < last) queue.push(named(++pushed));
  }
  /// Takes and sends what may be sent; the names and numbers of it.
  std::string sendAll() {
    std::string sentOnes;
    while (const auto* next = queue.take()) {
      sentOnes += next->notification.name + "#" + std::to_string(next->sequence) + " ";
      queue.sent(++packet);
    }
    return sentOnes;
  }
  std::future<void> pushInBackground(int number) {
    return std::async(std::launch::async, [this, number] { queue.push(named(number)); });
  }
  std::future<bool> beat() {
    return std::async(std::launch::async, [this] { return queue.pushHeartbeat({{}, "beat", {}}); });
  }
  bool waitForWork() const {
    for (int i = 0; !queue.hasWork() && i < kPatience.count(); ++i) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    return queue.hasWork();
  }

  NotificationQueue queue{{.stall = kStall, .forsaken = kForsaken}};
  int pushed = 0;
  std::uint32_t packet = 0;
};

TEST_F(NotificationQueueTest, OwesNoMoreThanItsLimitAndTellsOnceThatThereIsWork) {
  EXPECT_FALSE(queue.hasWork());
  int told = 0;
  queue.onWork([&told] { ++told; });
  pushUpTo(70);
  EXPECT_EQ(told, 1) << "the sender knows already";
  EXPECT_TRUE(sendAll().ends_with(" 64#64 "));
  EXPECT_FALSE(queue.hasWork());
  pushUpTo(71);
  EXPECT_EQ(told, 1);
  queue.acknowledged(999);
  EXPECT_EQ(sendAll(), "");
  queue.acknowledged(7);
  const auto& dropped = AgentStatistics::get().notificationsDropped;
  const unsigned before = dropped.value();
  EXPECT_EQ(printed([this] { queue.acknowledged(1, 268); }),
            "the master refused notification 1: error 268\n");
  EXPECT_EQ(dropped.value(), before + 1);
  EXPECT_EQ(sendAll(), "65#65 66#66 ");
}

TEST_F(NotificationQueueTest, HoldsItsProducerUpWhileTheMasterAnswers) {
  EXPECT_EQ(NotificationQueue::Times().stall, std::chrono::seconds(3)) << "as managers are told";
  queue.setCapacity(2);
  pushUpTo(2);
  auto third = pushInBackground(3);
  EXPECT_EQ(third.wait_for(kGrace), std::future_status::timeout);
  EXPECT_EQ(sendAll(), "1#1 2#2 ");
  EXPECT_EQ(third.wait_for(kGrace), std::future_status::timeout) << "what is owed counts";
  queue.acknowledged(1);
  ASSERT_EQ(third.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(sendAll(), "3#3 ");

  // The master takes no more: alarms are taken in all the same after a while, whoever waits for
  // whom, and the next ones at once.
  auto fourth = pushInBackground(4);
  EXPECT_EQ(fourth.wait_for(kGrace), std::future_status::timeout);
  EXPECT_EQ(fourth.wait_for(kPatience), std::future_status::ready);
  pushed = 4;
  const auto begin = std::chrono::steady_clock::now();
  pushUpTo(1000);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
  queue.acknowledged(2);
  queue.acknowledged(3);
  EXPECT_EQ(printed([this] { EXPECT_EQ(sendAll(), "999#999 1000#1000 "); }),
            "995 notifications were dropped, the oldest, while the master took none\n");
}

TEST_F(NotificationQueueTest, OwesNoMoreThan32KiBOfTexts) {
  for (int i = 0; i < 20; ++i) queue.push({{}, std::string(3000, 'n'), {}});
  std::size_t sentOnes = 0;
  const auto send = [&] {
    for (; queue.take() != nullptr; ++sentOnes) queue.sent(++packet);
    return sentOnes;
  };
  EXPECT_EQ(send(), 10U);
  queue.acknowledged(3);
  EXPECT_EQ(send(), 11U);
  queue.sessionEnded();
  queue.sessionStarted();
  EXPECT_EQ(send(), 21U);
}

TEST_F(NotificationQueueTest, LeavesAMasterThatTalksOnAndAcknowledgesNothing) {
  const auto hearFor = [this](milliseconds time) {
    bool isForsaken = false;
    const auto end = std::chrono::steady_clock::now() + time;
    while (!isForsaken && std::chrono::steady_clock::now() < end) {
      isForsaken = queue.isForsakenOnHearing();
      std::this_thread::sleep_for(milliseconds(1));
    }
    return isForsaken;
  };
  pushUpTo(63);
  sendAll();
  EXPECT_FALSE(hearFor(2 * kForsaken)) << "it may owe more";
  pushUpTo(65);
  sendAll();
  queue.deviceWait(true);
  std::this_thread::sleep_for(2 * kForsaken);
  queue.deviceWait(false);
  EXPECT_FALSE(queue.isForsakenOnHearing()) << "nobody heard it";
  EXPECT_TRUE(hearFor(kPatience));
  EXPECT_FALSE(queue.isForsakenOnHearing()) << "told once";
}

TEST_F(NotificationQueueTest, DrainsUntilAllIsAcknowledged) {
  pushUpTo(1);
  sendAll();
  const auto drain = [this](milliseconds limit) {
    const auto begin = std::chrono::steady_clock::now();
    queue.drain(limit);
    return std::chrono::steady_clock::now() - begin;
  };
  EXPECT_GE(drain(kGrace), kGrace);
  auto drained = std::async(std::launch::async, [&] { return drain(kPatience); });
  queue.acknowledged(1);
  EXPECT_LT(drained.get(), kPatience);
  EXPECT_FALSE(beat().get()) << "no heartbeat any more";
  pushUpTo(2);
  queue.sessionEnded();
  EXPECT_LT(drain(kPatience), kPatience);
}

TEST_F(NotificationQueueTest, AFileHoldsWhatIsNotAcknowledgedAndTheNumbersGoOn) {
  const TemporaryDirectory directory;
  const std::string path = directory.path + "/backlog";
  BacklogFile::Opened opened;
  constexpr auto kSlots = 2 + NotificationQueue::kMaxOwed;
  const auto live = [&](const std::function<void(NotificationQueue&)>& life) {
    opened.file.reset();
    printed([&] { opened = BacklogFile::open(path, kSlots); });
    NotificationQueue other{{.stall = kGrace}};
    other.setCapacity(2);
    other.useFile(opened.file.get(), opened.lastSequence);
    for (const auto& kept : opened.kept) {
      other.restore({kept.message, std::string(kept.message.text(TrapMessage::kText4)), {}}, kept);
    }
    life(other);
  };
  const auto post = [](NotificationQueue& other, const std::string& name) {
    Notification notification{{}, name, {}};
    notification.message.setText(TrapMessage::kText4, name);
    other.push(notification);
  };
  const auto send = [&](NotificationQueue& other) {
    std::string sentOnes;
    while (const auto* next = other.take()) {
      sentOnes += next->notification.name + "#" + std::to_string(next->sequence) + " ";
      other.sent(next->sequence);
    }
    return sentOnes;
  };
  live([&](NotificationQueue& other) {
    other.sessionStarted();
    for (const char* name : {"a", "b"}) post(other, name);
    EXPECT_EQ(send(other), "a#1 b#2 ");
    other.acknowledged(1);
    other.sessionEnded();
    for (const char* name : {"c", "d"}) post(other, name);  // b is dropped
  });
  live([&](NotificationQueue& other) {
    other.sessionStarted();
    EXPECT_EQ(send(other), "c#3 d#4 ");
    other.acknowledged(4);
    post(other, "e");
    opened.file->keep({});  // as one in hand
  });
  live([&](NotificationQueue& other) {
    for (int sessions = 0; sessions < 2; ++sessions) {
      other.sessionStarted();
      EXPECT_EQ(send(other), "c#3 e#5 #6 ") << "beyond the capacity";
      other.sessionEnded();
    }
    for (const auto& kept : opened.kept) other.forget(kept);
  });
  live([&](NotificationQueue& other) {
    EXPECT_EQ(other.size(), 0U) << "what nobody wants";
    other.sessionStarted();
    for (std::size_t number = 1; number <= kSlots + 1; ++number) {
      post(other, std::to_string(number));
      if (number <= kSlots - 2) send(other);
    }
  });
  live([&](NotificationQueue& other) {
    EXPECT_EQ(other.size(), kSlots) << "a full file";
    EXPECT_EQ(opened.kept.back().message.text(TrapMessage::kText4), std::to_string(kSlots + 1));
  });
}

TEST_F(NotificationQueueTest, AHeartbeatWaitsForItsTurnAndIsGivenUpWithTheSession) {
  auto first = beat();
  ASSERT_TRUE(waitForWork());
  EXPECT_EQ(first.wait_for(kGrace), std::future_status::timeout);
  EXPECT_EQ(sendAll(), "beat#1 ");
  EXPECT_TRUE(first.get());
  queue.acknowledged(1);
  auto second = beat();
  ASSERT_TRUE(waitForWork());
  pushUpTo(1);
  queue.sessionEnded();
  EXPECT_FALSE(second.get());
  EXPECT_FALSE(beat().get()) << "without a session at once";
  queue.sessionStarted();
  EXPECT_EQ(sendAll(), "1#2 ") << "without a number";
}

TEST_F(NotificationQueueTest, WithoutACapacityDropsWhatCannotBeHandedOver) {
  queue.setCapacity(0);
  // A master that takes nothing: what cannot be handed over is dropped, the first one after a
  // while.
  for (std::size_t owed = 0; owed <= NotificationQueue::kMaxOwed; ++owed) {
    pushUpTo(pushed + 1);
    sendAll();
  }
  const auto begin = std::chrono::steady_clock::now();
  pushUpTo(200);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kStall / 2);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
  queue.acknowledged(packet);
  EXPECT_NE(printed([this] { EXPECT_TRUE(sendAll().starts_with("200#")); }).find(" were dropped"),
            std::string::npos);
}

}  // namespace
}  // namespace norva::test
