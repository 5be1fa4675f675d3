// The alarm thread: takes each event that the unit posts on the alarm queue, names it and puts it
// into the notification queue, as it does with the notifications of the heartbeat thread. Made by
// start-up, never freed.
//
// `run` is the alarm thread's; `init` is called once on the main thread before `start`; sendTrap
// may be called from any thread but the main one.

#ifndef NORVA_TRAP_ALARM_H_
#define NORVA_TRAP_ALARM_H_

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "BacklogFile.h"
#include "ComPortAdapter.h"
#include "NotificationQueue.h"
#include "Thread.h"
#include "TrapMessage.h"

namespace norva {

class SnmpDataBase;

class TrapAlarm : public Thread {
 public:
  /// How notifications leave.
  enum TrapType : std::int32_t { kUnset = 0, kSnmpV2c = 1, kSnmpV3 = 2 };

  /// `queue` is not owned.
  TrapAlarm(std::string label, NotificationQueue& queue);

  void run() override;

  /// Chooses SNMPv2c or SNMPv3 by a device object (an unreadable one selects SNMPv2c) and makes the
  /// alarm queue. `catalogue` names the objects of events; not owned.
  virtual void init(const SnmpDataBase& catalogue);

  /// kUnset before init.
  TrapType trapType() const { return _trapType; }

  /// Receives into `opened`'s file, and puts what it held into the queue. Main thread, once, after
  /// init and before `start`.
  void useFile(BacklogFile::Opened opened);

  /// No event is taken off the alarm queue from now on: what waits there is the next agent's.
  /// Waits, at most for `limit`, until an event that has just been taken is in the queue. Any
  /// thread, for the end of the process.
  void takeNoMore(std::chrono::milliseconds limit);

  /// Whom a notification comes from. The unit's are kept for a master that is away; the agent's own
  /// heartbeat is given up then.
  enum class Origin { kUnit, kAgent };

  /// Hands one notification over: its OID by the message's type, then the seven payload objects. A
  /// type without a notification is reported and uses no number. Waits as NotificationQueue says,
  /// a heartbeat until it has left. False when nothing leaves. REQUIRES: init; no lock held.
  bool sendTrap(const TrapMessage& trapMessage, const std::string& name, const std::string& value,
                Origin origin);

 private:
  /// Waits for one event and prints its length; -1 for a failed receive, whose message reads zero.
  int receive(TrapMessage& event);
  /// Gives the event the texts of its notification.
  void nameEvent(const TrapMessage& event, std::string& name, std::string& value) const;
  /// Names the event and sends it.
  void dispatch(const TrapMessage& event, std::string name, std::string value);

  const std::int32_t _queueKey = kAlarmQueueKey;
  const std::string _label;
  TrapType _trapType = kUnset;
  int _queueId = -1;
  const SnmpDataBase* _catalogue = nullptr;
  TrapMessage _lastMessage;  // kept for whoever looks at the process with a debugger
  NotificationQueue& _queue;
  std::unique_ptr<BacklogFile> _file;  // null: alarms are received into memory
  std::atomic<bool> _isEnding = false;
  std::atomic<bool> _takesNoMore = false;
  std::atomic<pthread_t> _self{};
};

}  // namespace norva

#endif  // NORVA_TRAP_ALARM_H_
