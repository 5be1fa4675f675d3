#include "Fault.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ByteOrder.h"
#include "MessageQueue.h"
#include "ObjectProtocol.h"

namespace norva::dasunit {

namespace {

enum class Argument { kNone, kNumber, kObjectId, kHex };

struct FaultName {
  std::string_view name;
  FaultKind kind;
  Argument argument;
  std::int64_t high;  ///< largest number
};

constexpr std::int64_t kMaxDelay = 3'600'000;

constexpr std::array kFaultNames = {
    FaultName{"silent", FaultKind::kSilent, Argument::kNone, 0},
    FaultName{"delay", FaultKind::kDelay, Argument::kNumber, kMaxDelay},
    FaultName{"wrong-command", FaultKind::kWrongCommand, Argument::kNumber, UINT8_MAX},
    FaultName{"wrong-length", FaultKind::kWrongLength, Argument::kNumber, UINT8_MAX},
    FaultName{"oversize", FaultKind::kOversize, Argument::kNumber, kMaxPayload},
    FaultName{"truncate", FaultKind::kTruncate, Argument::kNumber, kMaxPayload},
    FaultName{"wrong-id", FaultKind::kWrongId, Argument::kObjectId, 0},
    FaultName{"double", FaultKind::kDouble, Argument::kNone, 0},
    FaultName{"stale", FaultKind::kStale, Argument::kHex, 0},
};

constexpr std::size_t kSetReplyOid = 2;

void changeId(Bytes& reply, std::int64_t id) {
  const std::size_t offset = reply[kFrameCommand] == kCommandSetReply ? kSetReplyOid : kReplyOid;
  storeLe16(reply.data() + offset, static_cast<std::uint16_t>(id));
}

}  // namespace

Fault parseFault(std::string_view name, const std::optional<std::string>& argument) {
  const auto* found = std::find_if(kFaultNames.begin(), kFaultNames.end(),
                                   [&](const FaultName& known) { return known.name == name; });
  if (found == kFaultNames.end()) throw InputError("unknown fault '" + std::string(name) + "'");
  if ((found->argument != Argument::kNone) != argument.has_value()) {
    throw InputError("fault " + std::string(name) +
                     (argument ? " takes no argument" : " needs an argument"));
  }
  Fault fault{found->kind};
  switch (found->argument) {
    case Argument::kNone:
      break;
    case Argument::kNumber:
      fault.number = parseInteger(*argument, std::string(name), 0, found->high);
      break;
    case Argument::kObjectId:
      fault.number = parseObjectId(*argument);
      break;
    case Argument::kHex:
      fault.bytes = parseHex(*argument);
      break;
  }
  return fault;
}

std::vector<Bytes> applyFault(const Fault& fault, Bytes reply) {
  const auto size = static_cast<std::size_t>(fault.number);
  switch (fault.kind) {
    case FaultKind::kSilent:
      return {};
    case FaultKind::kDelay:
      break;
    case FaultKind::kWrongCommand:
      reply[kFrameCommand] = static_cast<std::uint8_t>(fault.number);
      break;
    case FaultKind::kWrongLength:
      reply[kFrameObjLen] = static_cast<std::uint8_t>(fault.number);
      break;
    case FaultKind::kOversize:
      reply.resize(std::max(reply.size(), size));
      break;
    case FaultKind::kTruncate:
      reply.resize(std::min(reply.size(), size));
      break;
    case FaultKind::kWrongId:
      changeId(reply, fault.number);
      break;
    case FaultKind::kDouble:
      return {reply, reply};
    case FaultKind::kStale:
      return {fault.bytes, reply};
  }
  return {reply};
}

void FaultPlan::plan(Fault fault, FaultFilter filter, std::optional<std::int64_t> count) {
  const std::lock_guard lock(mutex_);
  fault_ = std::move(fault);
  filter_ = filter;
  remaining_ = count;
}

void FaultPlan::clear() {
  const std::lock_guard lock(mutex_);
  fault_.reset();
}

std::optional<Fault> FaultPlan::take(std::span<const std::uint8_t> request) {
  const std::lock_guard lock(mutex_);
  if (!fault_) return std::nullopt;
  const bool isWhole = request.size() >= kRequestValue;
  if (filter_.object && (!isWhole || loadLe16(request.data() + kRequestOid) != *filter_.object)) {
    return std::nullopt;
  }
  if (filter_.command && (!isWhole || request[kFrameCommand] != *filter_.command)) {
    return std::nullopt;
  }
  std::optional<Fault> taken = fault_;
  if (remaining_ && --*remaining_ == 0) fault_.reset();
  return taken;
}

}  // namespace norva::dasunit
