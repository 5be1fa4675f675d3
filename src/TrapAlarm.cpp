#include "TrapAlarm.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <chrono>
#include <numeric>
#include <string_view>
#include <thread>
#include <utility>

#include "DataManage.h"
#include "LibraryGate.h"
#include "MasterSession.h"
#include "ObjValue.h"
#include "Output.h"
#include "SnmpDataBase.h"

namespace norva {

namespace {

constexpr std::size_t kReceiveLimit = 1024;
constexpr std::chrono::milliseconds kPauseAfterFailure{100};
constexpr char kV3Context[] = "DAS_NORVA";

constexpr oid kSnmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

/// Last sub-identifier of the payload objects, in the order of the bindings.
enum PayloadObject : oid {
  kPayloadName = 1,
  kPayloadValue = 2,
  kPayloadDeviceId = 3,
  kPayloadText4 = 4,
  kPayloadText5 = 5,
  kPayloadText6 = 6,
  kPayloadSequence = 7,
};

constexpr NotificationOid notificationOid(oid last) {
  return {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 3, 3, 1, 1, 0, last};
}

constexpr std::pair<std::int32_t, NotificationOid> kNotifications[] = {
    {kMsgAlarm, notificationOid(96)},
    {kMsgRuChange, notificationOid(97)},
    {kMsgGeneralEvent, notificationOid(98)},
    {kMsgHeartbeat, notificationOid(99)},
};

/// The bindings of one notification, freed when the object goes.
class Bindings {
 public:
  explicit Bindings(const NotificationOid& notification) {
    snmp_varlist_add_variable(&_list, kSnmpTrapOid, std::size(kSnmpTrapOid), ASN_OBJECT_ID,
                              notification.data(), sizeof notification);
  }
  ~Bindings() { snmp_free_varbind(_list); }
  Bindings(const Bindings&) = delete;
  Bindings& operator=(const Bindings&) = delete;

  void add(PayloadObject object, std::string_view text) {
    add(object, ASN_OCTET_STR, text.data(), text.size());
  }
  void add(PayloadObject object, std::uint32_t integer) {
    add(object, ASN_INTEGER, &integer, sizeof integer);
  }

  netsnmp_variable_list* list() { return _list; }

 private:
  void add(PayloadObject object, u_char type, const void* value, std::size_t size) {
    const NotificationOid name = notificationOid(object);
    snmp_varlist_add_variable(&_list, name.data(), name.size(), type, value, size);
  }

  netsnmp_variable_list* _list = nullptr;
};

/// Name of a remote-unit change. Deliberate: as many characters of the text are skipped as the
/// three bytes add up to; beyond the text the name is empty.
std::string ruName(const std::uint8_t* ruBytes) {
  constexpr std::string_view kText = "RU ";
  const unsigned skipped = std::accumulate(ruBytes, ruBytes + TrapMessage::kRuByteCount, 0U);
  return skipped < kText.size() ? std::string(kText.substr(skipped)) : std::string();
}

}  // namespace

TrapAlarm::TrapAlarm(std::string label, NotificationQueue& queue)
    : Thread(kRunning, 0, 0), _label(std::move(label)), _queue(queue) {}

void TrapAlarm::init(const SnmpDataBase& catalogue) {
  _catalogue = &catalogue;
  ObjValue version;
  if (DataManage::getInstance()->getObjValue(kObjNotificationVersion, version) == -1) {
    Output::puts("setSnmpValue::select 0x0611 error!");
  }
  if (version.value()[0] != 0) {
    _trapType = kSnmpV3;
    _sender = [](netsnmp_variable_list* list) { send_v3trap(list, kV3Context); };
  } else {
    _trapType = kSnmpV2c;
    _sender = send_v2trap;
  }
  Output::print("Init _trapType is %d \n", _trapType);

  _queueId = msgget(_queueKey, IPC_CREAT | 0666);
  if (_queueId == -1) Output::puts("Trap::Trap  create msg error");
  _typeMap.insert(std::begin(kNotifications), std::end(kNotifications));
}

void TrapAlarm::run() {
  for (;;) {
    TrapMessage event;
    while (receive(event) == 0) Output::puts("not receive !!");
    // Deliberate: an event of an object without a scalar mapping is dropped, whatever its type.
    std::string name;
    if (_catalogue->getObjName(event.objId(), name) != 0) continue;
    dispatch(event, std::move(name), {});
  }
}

int TrapAlarm::receive(TrapMessage& event) {
  alignas(long) std::uint8_t buffer[ComPortAdapter::kTypeSize + kReceiveLimit] = {};
  const int length = DataManage::getInstance()->readAlarm(buffer, kReceiveLimit);
  const int error = errno;
  if (length > 0) {
    Trace::print("receivebuf len is %d \n", length);
  } else {
    Output::print("receivebuf len is %d \n", length);
  }
  event = TrapMessage();
  if (length != -1) {
    event = TrapMessage(buffer, static_cast<std::size_t>(length));
  } else if (error == E2BIG && DataManage::getInstance()->dropAlarm()) {
    Output::puts("alarm message too large to receive, taken off the queue");
  } else {
    std::this_thread::sleep_for(kPauseAfterFailure);
  }
  return length;
}

void TrapAlarm::dispatch(const TrapMessage& event, std::string name, std::string value) {
  switch (event.msgType()) {
    case kMsgAlarm:
      value = event.cleared() ? "Clear Alarm" : "New Alarm";
      _catalogue->getObjName(event.objId(), name);
      Trace::print("val is %s, name is %s \n", value.c_str(), name.c_str());
      break;
    case kMsgRuChange:
      value = event.cleared() ? "Remove RU" : "Add RU";
      name = ruName(event.ruBytes());
      break;
    case kMsgGeneralEvent:
      value = event.cleared() ? "Lose GeneralTrap" : "Report GeneralTrap";
      name = "GeneralTrap";
      break;
    default:
      break;
  }
  _lastMessage = event;
  sendTrap(event, name, value, Origin::kUnit);
}

bool TrapAlarm::sendTrap(const TrapMessage& trapMessage, const std::string& name,
                         const std::string& value, Origin origin) {
  if (_typeMap.count(trapMessage.msgType()) == 0) {
    Output::print("TrapAlarm::sendTrap no notification for msgType %d\n", trapMessage.msgType());
    return false;
  }
  Trace::print("TrapAlarm::sendTrap trapmsg.deviceId=%d\nstring is %s \nstring is %s \n",
               trapMessage.deviceId(), name.c_str(), value.c_str());
  if (origin == Origin::kUnit) {
    if (_queue.push({trapMessage, name, value})) LibraryGate::getInstance().announce();
    return true;
  }
  const auto heartbeat = _queue.pushHeartbeat({trapMessage, name, value});
  if (heartbeat.mustTell) LibraryGate::getInstance().announce();
  return _queue.wasTaken(heartbeat);
}

void TrapAlarm::perform(std::size_t most) {
  for (; most > 0 && _queue.hasWork(); --most) {
    const NotificationQueue::Numbered* next = _queue.take();
    if (next == nullptr) return;
    send(next->notification, next->sequence);
    _queue.sent(MasterSession::lastNotification());
  }
}

void TrapAlarm::send(const Notification& notification, std::uint32_t sequence) {
  const TrapMessage& message = notification.message;
  Bindings bindings(_typeMap.at(message.msgType()));
  bindings.add(kPayloadName, notification.name);
  bindings.add(kPayloadValue, notification.value);
  bindings.add(kPayloadDeviceId, message.deviceId());
  // Deliberate: the record keeps the sixth text before the fifth.
  bindings.add(kPayloadText4, message.text(TrapMessage::kText4));
  bindings.add(kPayloadText5, message.text(TrapMessage::kText5));
  bindings.add(kPayloadText6, message.text(TrapMessage::kText6));
  bindings.add(kPayloadSequence, sequence);
  _sender(bindings.list());
}

}  // namespace norva
