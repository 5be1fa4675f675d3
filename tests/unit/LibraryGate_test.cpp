#include "LibraryGate.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "AgentLibrary.h"
#include "TestSupport.h"

namespace norva {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience(10000);
/// How long a wrong gate is given to show itself; a right one passes however long it is.
constexpr milliseconds kGrace(30);

/// The test's own thread plays the main thread of the agent.
class LibraryGateTest : public testing::Test {
 protected:
  ~LibraryGateTest() override {
    if (wakeFd == -1) return;
    unregister_readfd(wakeFd);
    close(wakeFd);
  }

  void openGate() {
    ASSERT_EQ(gate.open(), 0);
    ASSERT_GT(external_readfdlen, 0);
    wakeFd = external_readfd[external_readfdlen - 1];
  }
  /// Waits until a borrower has made the wake-up descriptor readable.
  bool announced(milliseconds limit = kPatience) const {
    pollfd poller{wakeFd, POLLIN, 0};
    return poll(&poller, 1, static_cast<int>(limit.count())) == 1;
  }
  /// What the library does when the descriptor is readable.
  void runCallback() const {
    const int last = external_readfdlen - 1;
    external_readfdfunc[last](wakeFd, external_readfd_data[last]);
  }
  std::jthread borrow(int times = 1) {
    return std::jthread([this, times] {
      for (int i = 0; i < times; ++i) {
        const LibraryGate::Loan loan(gate);
        ++loans;
      }
    });
  }
  bool loansReach(int count) const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (loans < count && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    return loans >= count;
  }

  LibraryGate gate;
  int wakeFd = -1;
  std::atomic<int> loans = 0;
};

TEST_F(LibraryGateTest, LendsDuringADeviceWaitWithoutAWakeUp) {
  openGate();
  {
    const LibraryGate::DeviceWait wait(gate);
    const std::jthread borrower = borrow();
    ASSERT_TRUE(loansReach(1));
  }
  EXPECT_FALSE(announced(milliseconds(0)));
}

TEST_F(LibraryGateTest, DoesNotLendAfterADeviceWaitUntilTheCallbackRuns) {
  openGate();
  { const LibraryGate::DeviceWait wait(gate); }
  const std::jthread borrower = borrow();
  ASSERT_TRUE(announced());
  std::this_thread::sleep_for(kGrace);
  EXPECT_EQ(loans, 0);
  runCallback();
  EXPECT_EQ(loans, 1);
  EXPECT_FALSE(announced(milliseconds(0))) << "nobody waits any more";
}

TEST_F(LibraryGateTest, TheCallbackServesOneWaiterAndAnnouncesTheNext) {
  openGate();
  const std::jthread first = borrow();
  const std::jthread second = borrow();
  std::this_thread::sleep_for(kGrace);  // so that both wait when the first is served
  for (int served = 1; served <= 2; ++served) {
    ASSERT_TRUE(announced());
    gate.lendOnce();
    std::this_thread::sleep_for(kGrace);
    EXPECT_EQ(loans, served);
  }
  gate.lendOnce();  // returns at once: nobody waits
  EXPECT_EQ(loans, 2);
}

TEST_F(LibraryGateTest, ABorrowerFromBeforeOpenIsServedAfterIt) {
  const std::jthread borrower = borrow();
  openGate();
  ASSERT_TRUE(announced());
  gate.lendOnce();
  EXPECT_EQ(loans, 1);
}

TEST_F(LibraryGateTest, GivesAFixedNumberOfLoansInOneTurn) {
  constexpr int kMore = 10;
  openGate();
  gate.beginTurn();
  const std::jthread borrower = borrow(64 + kMore);
  for (int request = 0; request < 2; ++request) {
    const LibraryGate::DeviceWait wait(gate);
    ASSERT_TRUE(loansReach(64));
    std::this_thread::sleep_for(kGrace);
  }
  EXPECT_EQ(loans, 64);
  EXPECT_TRUE(announced()) << "the borrower waits for the main thread's return";

  gate.beginTurn();
  const LibraryGate::DeviceWait wait(gate);
  EXPECT_TRUE(loansReach(64 + kMore));
}

TEST_F(LibraryGateTest, ABoundedLoanIsGivenOnlyBetweenRequests) {
  openGate();
  std::atomic<bool> held = true;
  const auto borrowWithin = [this, &held](milliseconds limit) {
    return std::jthread([this, &held, limit] { held = LibraryGate::Loan(gate, limit).held(); });
  };
  {
    const LibraryGate::DeviceWait wait(gate);
    borrowWithin(kGrace).join();
    EXPECT_FALSE(held);
  }
  gate.lendOnce();  // returns at once: the borrower has given up
  {
    const std::jthread borrower = borrowWithin(kPatience);
    ASSERT_TRUE(announced());
    gate.lendOnce();
  }
  EXPECT_TRUE(held);
}

TEST_F(LibraryGateTest, TheMainThreadGoesOnOnlyAfterTheLoanEnded) {
  openGate();
  std::atomic<bool> ended = false;
  std::promise<void> borrowed;
  const auto hold = [this, &ended, &borrowed] {
    const LibraryGate::Loan loan(gate);
    borrowed.set_value();
    std::this_thread::sleep_for(kGrace);
    ended = true;
  };
  std::jthread borrower;
  {
    const LibraryGate::DeviceWait wait(gate);
    borrower = std::jthread(hold);
    ASSERT_EQ(borrowed.get_future().wait_for(kPatience), std::future_status::ready);
  }
  EXPECT_TRUE(ended);
  borrower.join();

  ended = false;
  borrowed = {};
  borrower = std::jthread(hold);
  ASSERT_TRUE(announced());
  gate.lendOnce();
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace norva
