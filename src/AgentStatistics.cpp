#include "AgentStatistics.h"

#include <algorithm>
#include <limits>

namespace norva {

namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();

std::uint32_t hundredths(ReplyTimes::Clock::time_point time) {
  using Hundredths = std::chrono::duration<std::uint64_t, std::centi>;
  const auto count = std::chrono::duration_cast<Hundredths>(time.time_since_epoch()).count();
  return std::max(static_cast<std::uint32_t>(count), 1U);
}

/// 0 where there is no such point in time.
std::uint32_t millisecondsSince(const std::atomic<std::uint32_t>& time) {
  const std::uint32_t begin = time.load(std::memory_order_relaxed);
  if (begin == 0) return 0;
  const std::uint32_t passed = hundredths(ReplyTimes::Clock::now()) - begin;
  return static_cast<std::uint32_t>(std::min(std::uint64_t{passed} * 10, kMost));
}

}  // namespace

AgentStatistics& AgentStatistics::get() {
  static AgentStatistics statistics;
  return statistics;
}

ReplyTimes& ReplyTimes::get() {
  static ReplyTimes times;
  return times;
}

void ReplyTimes::start() {
  _lastReply = hundredths(Clock::now());
}

ReplyTimes::Clock::time_point ReplyTimes::asked() {
  if (_lastReply.load(std::memory_order_relaxed) == 0) return {};
  const auto now = Clock::now();
  if (_owedSince.load(std::memory_order_relaxed) == 0) {
    _owedSince.store(hundredths(now), std::memory_order_relaxed);
  }
  return now;
}

void ReplyTimes::replied(Clock::time_point asked) {
  if (asked == Clock::time_point()) return;
  const auto now = Clock::now();
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(now - asked).count();
  const auto milliseconds = std::min(static_cast<std::uint64_t>(took), kMost);
  _lastReply.store(hundredths(now), std::memory_order_relaxed);
  _owedSince.store(0, std::memory_order_relaxed);
  if (milliseconds > slowestReply()) {
    _slowest.store(static_cast<std::uint32_t>(milliseconds), std::memory_order_relaxed);
  }
}

std::uint32_t ReplyTimes::sinceLastReply() const {
  return millisecondsSince(_lastReply);
}

std::uint32_t ReplyTimes::silence() const {
  return millisecondsSince(_owedSince);
}

UnitExchange::UnitExchange(Counter& kind) : _asked(ReplyTimes::get().asked()) {
  kind.add();
}

UnitExchange::~UnitExchange() {
  if (!_hasSucceeded) AgentStatistics::get().unitFailures.add();
}

}  // namespace norva
