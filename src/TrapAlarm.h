// The alarm thread: turns each event that the unit posts on the alarm queue into one notification,
// and sends the notifications of the heartbeat thread too.
//
// `run` is the alarm thread's; `init` is called once on the main thread before `start`; sendTrap
// may be called from any thread but the main one. It holds the library gate from the sequence
// number to the send, so numbers are consecutive and notifications leave in their order.

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
#include "Thread.h"
#include "TrapMessage.h"

namespace norva {

class SnmpDataBase;

/// OIDs of notifications and of their payload objects have the same length.
constexpr std::size_t kNotificationOidLength = 16;
using NotificationOid = std::array<oid, kNotificationOidLength>;

class TrapAlarm : public Thread {
 public:
  explicit TrapAlarm(std::string label);

  void run() override;

  /// Chooses SNMPv2c or SNMPv3 by a device object (an unreadable one selects SNMPv2c) and makes the
  /// alarm queue. `catalogue` names the objects of events; not owned.
  virtual void init(const SnmpDataBase& catalogue);

  /// Sends one notification: its OID by the message's type, then the seven payload objects. A type
  /// without a notification is reported and uses no sequence number. No failure is returned: with
  /// no session to the master the library drops the notification. REQUIRES: init; no lock held.
  void sendTrap(const TrapMessage& trapMessage, const std::string& name, const std::string& value);

 private:
  using Sender = std::function<void(const LibraryGate::Loan&, netsnmp_variable_list*)>;
  enum TrapType : std::int32_t { kUnset = 0, kSnmpV2c = 1, kSnmpV3 = 2 };

  /// Waits for one event and prints its length; -1 for a failed receive, whose message reads zero.
  int receive(TrapMessage& event);
  /// Names the event and sends it.
  void dispatch(const TrapMessage& event, std::string name, std::string value);

  const std::int32_t _queueKey = kAlarmQueueKey;
  const std::string _label;
  Sender _sender;
  std::int32_t _trapType = kUnset;
  int _queueId = -1;
  const SnmpDataBase* _catalogue = nullptr;
  TrapMessage _lastMessage;  // kept for whoever looks at the process with a debugger
  std::uint32_t _trapSeq = 0;
  std::map<std::int32_t, NotificationOid> _typeMap;
};

}  // namespace norva

#endif  // NORVA_TRAP_ALARM_H_
