// The AgentX session with the master agent, as far as the end of the process needs it.
//
// Library state: main thread, or the holder of a loan of the library gate.

#ifndef NORVA_MASTER_SESSION_H_
#define NORVA_MASTER_SESSION_H_

#include "LibraryGate.h"

namespace norva {

class MasterSession {
 public:
  /// Follows the session as it comes and goes. Main thread, once, before init_snmp.
  static void follow();

  /// Ends the connection, if there is one, without the AgentX Close message: an snmpd that receives
  /// it while requests to this subagent are outstanding, as they are under polling, corrupts its
  /// memory and aborts. It takes a connection that just ends well.
  static void cut(const LibraryGate::Loan&);
};

}  // namespace norva

#endif  // NORVA_MASTER_SESSION_H_
