// The AgentX session with the master agent, beyond what the library does with it.
//
// Library state: main thread, or the holder of a loan of the library gate.

#ifndef NORVA_MASTER_SESSION_H_
#define NORVA_MASTER_SESSION_H_

#include "LibraryGate.h"

namespace norva {

class MasterSession {
 public:
  /// Follows the session as it comes and goes, and has the library send nothing twice: over a
  /// stream nothing is lost, and a notification that a slow master answers late would arrive once
  /// more. Main thread, once, before init_snmp.
  static void follow();

  /// Notifications that were sent and not yet answered by the master; 0 without a session, more
  /// than any limit while a stalled master leaves the connection filled.
  static int unacknowledged();

  /// Ends the connection, if there is one, without the AgentX Close message: an snmpd that receives
  /// it while requests to this subagent are outstanding, as they are under polling, corrupts its
  /// memory and aborts. It takes a connection that just ends well.
  static void cut(const LibraryGate::Loan&);
};

}  // namespace norva

#endif  // NORVA_MASTER_SESSION_H_
