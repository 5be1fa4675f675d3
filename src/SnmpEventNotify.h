// The heartbeat thread: a notification every so many minutes while the unit's switch is on.
// Interval and switch are device objects read anew in every cycle, so a manager that changes them
// changes the heartbeat from the next cycle on. The payload is read once, at construction.
//
// Made on the main thread by start-up, never freed; `run` is the heartbeat thread's. No lock of its
// own.

#ifndef NORVA_SNMP_EVENT_NOTIFY_H_
#define NORVA_SNMP_EVENT_NOTIFY_H_

#include <cstdint>
#include <string>

#include "ComPortAdapter.h"
#include "ObjValue.h"
#include "Thread.h"
#include "TrapMessage.h"

namespace norva {

class TrapAlarm;

class SnmpEventNotify : public Thread {
 public:
  /// `alarmTrap` sends the notifications; not owned, outlives the object.
  SnmpEventNotify(std::string name, TrapAlarm* alarmTrap);

  void run() override;
  std::string getName() const override { return _name; }

  /// Fills the payload of a heartbeat from the unit's objects.
  static void initHeartBeatMsg(TrapMessage& heartMsg);

  /// Read the interval (minutes) and the switch (0 off) anew. A failed read keeps the last value;
  /// false for the interval then.
  bool readHeartBeatInterval();
  void readHeartBeatSwFlag();

 private:
  const std::int32_t _queueKey = kAlarmQueueKey;
  const std::string _name;
  ObjValue _intervalObject;
  ObjValue _switchObject;
  std::uint8_t _heartBeatInterval = 0;
  std::uint8_t _heartBeatSwFlag = 0;
  TrapAlarm* const _alarmTrap;
  TrapMessage _heartMsg;
};

}  // namespace norva

#endif  // NORVA_SNMP_EVENT_NOTIFY_H_
