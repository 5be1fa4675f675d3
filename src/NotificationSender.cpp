#include "NotificationSender.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "AgentLibrary.h"
#include "MasterSession.h"
#include "TrapMessage.h"

namespace norva {

namespace {

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
/// The same of the notifications: this and the type of the message.
constexpr oid kBeforeNotifications = 95;

/// OIDs of notifications and of their payload objects have the same length.
using NotificationOid = std::array<oid, 16>;

constexpr NotificationOid notificationOid(oid last) {
  return {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 3, 3, 1, 1, 0, last};
}

/// The bindings of one notification, freed when the object goes.
class Bindings {
 public:
  explicit Bindings(std::int32_t msgType) {
    const NotificationOid value = notificationOid(kBeforeNotifications + static_cast<oid>(msgType));
    snmp_varlist_add_variable(&_list, kSnmpTrapOid, std::size(kSnmpTrapOid), ASN_OBJECT_ID,
                              value.data(), sizeof value);
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

}  // namespace

NotificationSender::NotificationSender(NotificationQueue& queue, bool withContext)
    : _queue(queue), _withContext(withContext) {}

void NotificationSender::perform(std::size_t most) {
  for (; most > 0 && _queue.hasWork(); --most) {
    const NotificationQueue::Numbered* next = _queue.take();
    if (next == nullptr) return;
    send(*next);
    _queue.sent(MasterSession::lastNotification());
  }
}

void NotificationSender::send(const NotificationQueue::Numbered& numbered) const {
  const auto& [message, name, value] = numbered.notification;
  Bindings bindings(message.msgType());
  bindings.add(kPayloadName, name);
  bindings.add(kPayloadValue, value);
  bindings.add(kPayloadDeviceId, message.deviceId());
  // Deliberate: the record keeps the sixth text before the fifth.
  bindings.add(kPayloadText4, message.text(TrapMessage::kText4));
  bindings.add(kPayloadText5, message.text(TrapMessage::kText5));
  bindings.add(kPayloadText6, message.text(TrapMessage::kText6));
  bindings.add(kPayloadSequence, numbered.sequence);
  if (_withContext) {
    send_v3trap(bindings.list(), kV3Context);
  } else {
    send_v2trap(bindings.list());
  }
}

}  // namespace norva
