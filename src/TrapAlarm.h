// The alarm thread: turns each event that the unit posts on the alarm queue into one notification,
// and takes the notifications of the heartbeat thread too. They leave through a queue, in their
// order and with consecutive numbers, sent by whoever holds the agent library.
//
// `run` is the alarm thread's; `init` is called once on the main thread before `start`; sendTrap
// may be called from any thread but the main one, isWaiting from any, perform by the holder of the
// library gate.

#ifndef NORVA_TRAP_ALARM_H_
#define NORVA_TRAP_ALARM_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "AgentLibrary.h"
#include "ComPortAdapter.h"
#include "LibraryGate.h"
#include "NotificationQueue.h"
#include "Thread.h"
#include "TrapMessage.h"

namespace norva {

class SnmpDataBase;

/// OIDs of notifications and of their payload objects have the same length.
constexpr std::size_t kNotificationOidLength = 16;
using NotificationOid = std::array<oid, kNotificationOidLength>;

class TrapAlarm : public Thread, public LibraryWork {
 public:
  /// `queue` is not owned.
  TrapAlarm(std::string label, NotificationQueue& queue);

  void run() override;

  /// Chooses SNMPv2c or SNMPv3 by a device object (an unreadable one selects SNMPv2c) and makes the
  /// alarm queue. `catalogue` names the objects of events; not owned.
  virtual void init(const SnmpDataBase& catalogue);

  /// Whom a notification comes from. The unit's are kept for a master that is away; the agent's own
  /// heartbeat is given up then.
  enum class Origin { kUnit, kAgent };

  /// Hands one notification over: its OID by the message's type, then the seven payload objects. A
  /// type without a notification is reported and uses no number. Waits as NotificationQueue says,
  /// a heartbeat until it has left. False when nothing leaves. REQUIRES: init; no lock held.
  bool sendTrap(const TrapMessage& trapMessage, const std::string& name, const std::string& value,
                Origin origin);

  /// Notifications that may leave.
  bool isWaiting() const override { return _queue.hasWork(); }
  /// Sends as many of them as may leave, at most `most`.
  void perform(std::size_t most) override;
  void deviceWait(bool begins) override { _queue.listensToMaster(!begins); }

 private:
  using Sender = std::function<void(netsnmp_variable_list*)>;
  enum TrapType : std::int32_t { kUnset = 0, kSnmpV2c = 1, kSnmpV3 = 2 };

  /// Waits for one event and prints its length; -1 for a failed receive, whose message reads zero.
  int receive(TrapMessage& event);
  /// Names the event and sends it.
  void dispatch(const TrapMessage& event, std::string name, std::string value);
  void send(const Notification& notification, std::uint32_t sequence);

  const std::int32_t _queueKey = kAlarmQueueKey;
  const std::string _label;
  Sender _sender;
  std::int32_t _trapType = kUnset;
  int _queueId = -1;
  const SnmpDataBase* _catalogue = nullptr;
  TrapMessage _lastMessage;  // kept for whoever looks at the process with a debugger
  std::map<std::int32_t, NotificationOid> _typeMap;
  NotificationQueue& _queue;
};

}  // namespace norva

#endif  // NORVA_TRAP_ALARM_H_
