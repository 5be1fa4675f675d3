// What the unit posts on the alarm queue, up to the bindings of the notification.

#include <algorithm>
#include <memory>
#include <optional>

#include "AgentLibrary.h"
#include "AsnType.h"
#include "DataBase.h"
#include "DataManage.h"
#include "Fuzz.h"
#include "NotificationQueue.h"
#include "NotificationSender.h"
#include "SnmpDataBase.h"
#include "TrapAlarm.h"

namespace norva::fuzz {
namespace {

constexpr int kMapped = 0x0403, kMappedToo = 0x3034;
constexpr std::size_t kMost = 1024;  // bytes of a message
constexpr std::size_t kSize = 213;   // of a record

/// No more messages; ends the alarm thread's loop.
struct Exhausted {};

/// The bindings of a notification, each with a letter for its type: 'o' and the last number of an
/// OID, 'i' and an integer, 's' and a text.
using Sent = std::vector<std::string>;

std::vector<Sent> sent;

std::string text(const Bytes& record, std::size_t start) {
  const auto begin = record.begin() + static_cast<long>(start);
  return {begin, std::find(begin, record.end(), 0)};
}

/// The notification that a message must become, if any.
std::optional<Sent> expected(Bytes message, unsigned sequence) {
  if (message.empty() || message.size() > kMost) return {};
  message.resize(kSize);
  const int objId = message[9] * 256 + message[10];
  if (objId != kMapped && objId != kMappedToo) return {};
  const bool isKnown = message[0] == 0 && message[1] == 0 && message[2] == 0;
  const unsigned type = message[3];
  if (!isKnown || type < 1 || type > 4) return {};
  const bool isCleared = message[11] == '0';
  std::string name = objId == kMapped ? "Alarm" : "Other", value;
  if (type == 1) value = isCleared ? "Clear Alarm" : "New Alarm";
  if (type == 2) {
    name = "RU ";
    name.erase(0, std::size_t{message[12]} + message[13] + message[14]);
    value = isCleared ? "Remove RU" : "Add RU";
  }
  if (type == 3) {
    name = "GeneralTrap";
    value = isCleared ? "Lose GeneralTrap" : "Report GeneralTrap";
  }
  return Sent{"o" + std::to_string(95 + type),
              "s" + name,
              "s" + value,
              "i" + std::to_string(message[20]),
              "s" + text(message, 21),
              "s" + text(message, 149),
              "s" + text(message, 85),
              "i" + std::to_string(sequence)};
}

std::string shown(const netsnmp_variable_list& binding) {
  if (binding.type == ASN_INTEGER) return "i" + std::to_string(*binding.val.integer);
  if (binding.type == ASN_OCTET_STR) {
    return "s" + std::string(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
  }
  MUST(binding.type == ASN_OBJECT_ID && binding.val_len == 16 * sizeof(oid));
  return "o" + std::to_string(binding.val.objid[15]);
}

void receive(const netsnmp_variable_list* variable) {
  Sent bindings;
  for (; variable != nullptr; variable = variable->next_variable) {
    const oid number = bindings.size();
    MUST(number == 0 || (variable->name_length == 16 && variable->name[15] == number));
    bindings.push_back(shown(*variable));
  }
  sent.push_back(bindings);
}

std::unique_ptr<SnmpDataBase> makeCatalogue() {
  DataBase& dataBase = DataBase::get();
  dataBase.scalars.rows = {scalarRow(kMapped, 1, kAsnInteger, 0, "Alarm"),
                           scalarRow(kMappedToo, 2, kAsnInteger, 0, "Other")};
  return std::make_unique<SnmpDataBase>(DataBase::kPath);
}

}  // namespace

void run(Input input) {
  static const auto catalogue = makeCatalogue();
  Queues& queues = Queues::get();
  queues.exhausted = [](int key) {
    if (key == kAlarmQueueKey) throw Exhausted();
  };
  const std::uint8_t version = input.byte();
  queues.sent = [&](int, const Bytes&) {
    queues.waiting[kReplyQueueKey] = {{0x12, 4, 0, 0, 0x11, 6, version}};
    return true;
  };
  NotificationQueue notifications;
  notifications.sessionStarted();
  TrapAlarm alarm("fuzz", notifications);
  alarm.init(*catalogue);
  NotificationSender sender(notifications, alarm.trapType() == TrapAlarm::kSnmpV3);

  std::vector<Sent> due;
  std::deque<Bytes>& messages = queues.waiting[kAlarmQueueKey];
  while (!input.empty() && messages.size() < 10) {
    messages.push_back(input.message());
    if (auto event = expected(messages.back(), static_cast<unsigned>(due.size() + 1))) {
      due.push_back(std::move(*event));
    }
  }
  sent.clear();
  try {
    alarm.run();
  } catch (const Exhausted&) {
  }
  sender.perform(1000);
  MUST(sent == due);
}

}  // namespace norva::fuzz

// In place of the library's.
extern "C" void send_v2trap(netsnmp_variable_list* list) {
  norva::fuzz::receive(list);
}
extern "C" void send_v3trap(netsnmp_variable_list* list, const char*) {
  norva::fuzz::receive(list);
}
