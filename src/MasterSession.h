// The AgentX session with the master agent, beyond what the library does with it. The library owns
// the session and has one at a time; for the holder of the library gate.

#ifndef NORVA_MASTER_SESSION_H_
#define NORVA_MASTER_SESSION_H_

#include <cstdint>

namespace norva {

class NotificationQueue;

class MasterSession {
 public:
  /// Follows the session as it comes and goes, telling `notifications` of that and of every
  /// acknowledgement, and has the library send nothing twice: over a stream nothing is lost, and a
  /// notification that a slow master answers late would arrive once more. Main thread, once, before
  /// init_snmp. Not owned.
  static void follow(NotificationQueue& notifications);

  /// Whether there is a session in which all objects are registered. Any thread.
  static bool isServing();
  /// To be called before each turn of the request loop: within one the library opens a session and
  /// registers.
  static void beginTurn();

  /// Packet id under which the library sent the last notification, 0 if it sent none since the last
  /// call.
  static std::uint32_t lastNotification();

  /// Ends the connection, if there is one, without the AgentX Close message: an snmpd that receives
  /// it while requests to this subagent are outstanding, as they are under polling, corrupts its
  /// memory and aborts. It takes a connection that just ends well.
  static void cut();
};

}  // namespace norva

#endif  // NORVA_MASTER_SESSION_H_
