// What the unit has done since it started or since the last reset. Thread-safe.

#ifndef NORVA_DASUNIT_STATISTICS_H_
#define NORVA_DASUNIT_STATISTICS_H_

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace norva::dasunit {

enum class Count {
  kRequests,  ///< messages taken off the request queue: accepted + refused
  kGets,      ///< of these, get requests
  kSets,      ///< of these, set requests
  kAccepted,  ///< requests carried out, whatever a fault did to the reply
  kRefused,   ///< requests refused
  kReplies,   ///< messages put on the reply queue
  kDropped,   ///< replies lost because the reply queue was full
  kFaults,    ///< requests on which the unit misbehaved
  kAlarms,    ///< messages put on the alarm queue
};

class Statistics {
 public:
  void add(Count count, std::int64_t amount = 1) {
    counts_[static_cast<std::size_t>(count)] += amount;
  }

  void reset() {
    for (auto& count : counts_) count = 0;
  }

  /// One line "name value" each.
  std::string format() const {
    std::string lines;
    for (std::size_t index = 0; index < kNames.size(); ++index) {
      lines += std::string(kNames[index]) + ' ' + std::to_string(counts_[index]) + '\n';
    }
    return lines;
  }

 private:
  static constexpr std::array kNames = {"requests", "gets",    "sets",   "accepted", "refused",
                                        "replies",  "dropped", "faults", "alarms"};

  std::array<std::atomic<std::int64_t>, kNames.size()> counts_{};
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_STATISTICS_H_
