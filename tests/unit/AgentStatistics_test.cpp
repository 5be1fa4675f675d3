#include "AgentStatistics.h"

#include <gtest/gtest.h>

#include <thread>

namespace norva::test {
namespace {

using std::chrono::milliseconds;

TEST(CounterTest, GoesOnBehindItsLargestNumber) {
  Counter counter(0xFFFFFFFE);
  counter.add();
  EXPECT_EQ(counter.value(), 0xFFFFFFFF);
  counter.add(3);
  EXPECT_EQ(counter.value(), 2U);
}

TEST(UnitExchangeTest, IsCountedAndTimedOnceSomebodyWantsToKnow) {
  constexpr milliseconds kTime(30);
  auto& statistics = AgentStatistics::get();
  const auto& times = ReplyTimes::get();
  {
    UnitExchange exchange(statistics.unitReads);
    std::this_thread::sleep_for(kTime);
    exchange.replied();
    exchange.succeeded();
  }
  EXPECT_EQ(times.slowestReply() + times.sinceLastReply() + times.silence(), 0U);

  ReplyTimes::get().start();
  { const UnitExchange unanswered(statistics.unitReads); }
  std::this_thread::sleep_for(kTime);
  EXPECT_GE(times.silence(), 20U) << "owed since the one that was not answered";
  {
    UnitExchange exchange(statistics.unitWrites);
    std::this_thread::sleep_for(kTime);
    exchange.replied();
  }
  EXPECT_EQ(times.silence(), 0U);
  EXPECT_GE(times.slowestReply(), 30U);
  EXPECT_EQ(statistics.unitReads.value(), 2U);
  EXPECT_EQ(statistics.unitWrites.value(), 1U);
  EXPECT_EQ(statistics.unitFailures.value(), 2U) << "one not answered, one refused";
}

}  // namespace
}  // namespace norva::test
