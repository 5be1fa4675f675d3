#include "LibraryGate.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "AgentLibrary.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience(10000);
/// How long a wrong gate is given to show itself; a right one passes however long it is.
constexpr milliseconds kGrace(30);

struct CountedWork : LibraryWork {
  bool hasWork() const override { return waiting > 0; }
  void perform(std::size_t most) override {
    begun = true;
    std::this_thread::sleep_for(duration);
    for (; waiting > 0 && most > 0; --most) {
      --waiting;
      ++done;
    }
  }
  void deviceWait(bool) override {}
  std::atomic<bool> begun = false;
  std::atomic<int> waiting = 0, done = 0;
  milliseconds duration{0};
};

/// The test's own thread plays the main thread of the agent.
class LibraryGateTest : public testing::Test {
 protected:
  LibraryGateTest() {
    EXPECT_EQ(gate.open(), 0);
    wakeFd = external_readfd[external_readfdlen - 1];
    gate.setWork(work);
  }
  ~LibraryGateTest() override {
    unregister_readfd(wakeFd);
    close(wakeFd);
  }
  void announce(int pieces) {
    work.waiting += pieces;
    gate.announce();
  }
  /// Whether somebody has made the wake-up descriptor readable.
  bool announced(milliseconds limit = milliseconds(0)) const {
    pollfd poller{wakeFd, POLLIN, 0};
    return poll(&poller, 1, static_cast<int>(limit.count())) == 1;
  }

  CountedWork work;
  LibraryGate gate;
  int wakeFd = -1;
};

TEST_F(LibraryGateTest, WorkIsDoneByItsThreadDuringADeviceWaitWhichEndsOnlyAfterIt) {
  work.duration = kGrace;
  std::jthread announcer;
  {
    const LibraryGate::DeviceWait wait(gate);
    announcer = std::jthread([this] { announce(3); });
    for (int i = 0; !work.begun && i < kPatience.count(); ++i) {
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
  EXPECT_EQ(work.done, 3);
  announcer.join();
  EXPECT_FALSE(announced());
  for (int times = 0; times < 2; ++times) {
    gate.announceEnd(true);
    EXPECT_TRUE(announced()) << "to the main thread";
    external_readfdfunc[external_readfdlen - 1](wakeFd, &gate);  // as the library does
    EXPECT_FALSE(announced());
  }
}

TEST_F(LibraryGateTest, WorkThatWaitedBeforeADeviceWaitIsDoneAtItsBegin) {
  announce(5);
  const LibraryGate::DeviceWait wait(gate);
  EXPECT_EQ(work.done, 5);
}

TEST_F(LibraryGateTest, WorkIsNeverLeftBehindAtTheEdgesOfADeviceWait) {
  constexpr int kRounds = 20000;
  std::jthread announcer([this] {
    for (int i = 0; i < kRounds; ++i) announce(1);
  });
  std::atomic<bool> ended = false;
  std::jthread watcher([&] {
    announcer.join();
    ended = true;
  });
  while (!ended) {
    const LibraryGate::DeviceWait wait(gate);
  }
  EXPECT_TRUE(work.waiting == 0 || announced());
  gate.performWork(kRounds);
  EXPECT_EQ(work.done, kRounds);
}

}  // namespace
}  // namespace norva::test
