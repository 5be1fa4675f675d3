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

/// The test's own thread plays the main thread of the agent.
class LibraryGateTest : public testing::Test {
 protected:
  ~LibraryGateTest() override {
    unregister_readfd(wakeFd);
    close(wakeFd);
  }
  void openGate() {
    ASSERT_EQ(gate.open(), 0);
    wakeFd = external_readfd[external_readfdlen - 1];
  }
  /// Waits until a borrower has made the wake-up descriptor readable.
  bool announced(milliseconds limit = kPatience) const {
    pollfd poller{wakeFd, POLLIN, 0};
    return poll(&poller, 1, static_cast<int>(limit.count())) == 1;
  }
  std::jthread borrow(int times = 1, milliseconds holding = milliseconds(0)) {
    return std::jthread([this, times, holding] {
      for (int i = 0; i < times; ++i) {
        const LibraryGate::Loan loan(gate);
        ++begun;
        std::this_thread::sleep_for(holding);
        ++loans;
      }
    });
  }
  bool loansBegin(int count) const {
    for (int i = 0; begun < count && i < kPatience.count(); ++i) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    return begun >= count;
  }

  LibraryGate gate;
  int wakeFd = -1;
  std::atomic<int> begun = 0, loans = 0;
};

TEST_F(LibraryGateTest, LendsDuringADeviceWaitAndThenOnlyWhenTheCallbackRuns) {
  openGate();
  std::jthread borrower;
  {
    const LibraryGate::DeviceWait wait(gate);
    borrower = borrow(1, kGrace);
    ASSERT_TRUE(loansBegin(1));
  }
  EXPECT_EQ(loans, 1) << "the wait ends only after the loan";
  EXPECT_FALSE(announced(milliseconds(0)));

  borrower = borrow(1, kGrace);
  ASSERT_TRUE(announced());
  std::this_thread::sleep_for(kGrace);
  EXPECT_EQ(begun, 1);
  const int last = external_readfdlen - 1;
  external_readfdfunc[last](wakeFd, external_readfd_data[last]);
  EXPECT_EQ(loans, 2) << "the callback returns only after the loan";
  EXPECT_FALSE(announced(milliseconds(0))) << "nobody waits any more";
}

TEST_F(LibraryGateTest, ServesOneWaiterAtATimeAlsoFromBeforeOpen) {
  const std::jthread first = borrow();
  const std::jthread second = borrow();
  std::this_thread::sleep_for(kGrace);  // so that both wait when the gate opens
  openGate();
  for (int served = 1; served <= 2; ++served) {
    ASSERT_TRUE(announced());
    gate.lendOnce();
    std::this_thread::sleep_for(kGrace);
    EXPECT_EQ(loans, served);
  }
  gate.lendOnce();  // returns at once: nobody waits
}

TEST_F(LibraryGateTest, GivesAFixedNumberOfLoansInOneTurn) {
  openGate();
  gate.beginTurn(0);
  const std::jthread borrower = borrow(64 + 10);
  for (int request = 0; request < 2; ++request) {
    const LibraryGate::DeviceWait wait(gate);
    ASSERT_TRUE(loansBegin(64));
    std::this_thread::sleep_for(kGrace);
  }
  EXPECT_EQ(loans, 64);
  EXPECT_TRUE(announced()) << "the borrower waits for the main thread's return";
  gate.beginTurn(0);
  const LibraryGate::DeviceWait wait(gate);
  EXPECT_TRUE(loansBegin(64 + 10));
}

TEST_F(LibraryGateTest, ABoundedLoanIsGivenOnlyBetweenRequests) {
  openGate();
  std::atomic<bool> held = true;
  const auto borrowWithin = [&](milliseconds limit) {
    return std::jthread([&, limit] { held = LibraryGate::Loan(gate, limit).held(); });
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

}  // namespace
}  // namespace norva::test
