// Misbehaviour on request: what is done to the replies, to how many, and to which. FaultPlan is
// thread-safe, the rest are values and pure functions.

#ifndef NORVA_DASUNIT_FAULT_H_
#define NORVA_DASUNIT_FAULT_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Text.h"

namespace norva::dasunit {

enum class FaultKind {
  kSilent,        ///< no reply; the request stays unanswered for good
  kDelay,         ///< the reply comes `number` milliseconds late
  kWrongCommand,  ///< the reply's command byte is `number`
  kWrongLength,   ///< the reply's objLen byte is `number`
  kOversize,      ///< the reply is padded with zeros to `number` bytes
  kTruncate,      ///< the reply is cut to `number` bytes
  kWrongId,       ///< the reply carries object id `number`
  kDouble,        ///< the reply is sent twice
  kStale,         ///< `bytes` go out as a reply of their own, before the real one
};

struct Fault {
  FaultKind kind;
  std::int64_t number = 0;
  Bytes bytes{};

  /// How late the replies go out.
  std::chrono::milliseconds delay() const {
    return std::chrono::milliseconds{kind == FaultKind::kDelay ? number : 0};
  }
};

/// The fault that `name` and `argument` stand for. Throws InputError for an unknown name and a
/// missing, needless or impossible argument.
Fault parseFault(std::string_view name, const std::optional<std::string>& argument);

/// What goes out, in this order, in place of `reply`.
std::vector<Bytes> applyFault(const Fault& fault, Bytes reply);

/// Which requests the fault is for; what is not given is not looked at.
struct FaultFilter {
  std::optional<std::uint16_t> object{};
  std::optional<std::uint8_t> command{};  ///< kCommandGetRequest or kCommandSetRequest
};

class FaultPlan {
 public:
  /// Misbehaves on the next `count` requests that pass `filter`, without `count` on all of them.
  /// Replaces what was planned before.
  void plan(Fault fault, FaultFilter filter, std::optional<std::int64_t> count);
  void clear();

  /// The fault to apply to the reply to `request`, counting it, or none.
  std::optional<Fault> take(std::span<const std::uint8_t> request);

 private:
  std::mutex mutex_;  // guards all below
  std::optional<Fault> fault_;
  FaultFilter filter_;
  std::optional<std::int64_t> remaining_;
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_FAULT_H_
