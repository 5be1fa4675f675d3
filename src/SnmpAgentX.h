// Request handlers of the scalar objects: each scalar stands for one device object.
//
// Callbacks of the agent library, with its signatures. Main thread only, one request at a time: the
// state behind them is process-wide and unlocked.

#ifndef NORVA_SNMP_AGENT_X_H_
#define NORVA_SNMP_AGENT_X_H_

#include <vector>

#include "AgentLibrary.h"
#include "ObjInfo.h"

namespace norva {

class SnmpDataBase;

class SnmpAgentX {
 public:
  /// The list of scalars in registration order; the entry registered with magic m is m - 1.
  static std::vector<SnmpObjRecord>& generalObjects();

  /// The catalogue that the handlers hand to the facade. Not owned; set before registration.
  static void setCatalogue(const SnmpDataBase& catalogue);

  /// Answers GET and GET-NEXT: the value bytes, a 4-byte integer or a text of `*varLen` bytes,
  /// valid until the next call; null when the request is not for this object or it cannot be read.
  /// Sets `*writeMethod` to writeObject for an object that the mapping lets managers write.
  static u_char* read_Var(struct variable* vp, oid* name, size_t* length, int exact, size_t* varLen,
                          WriteMethod** writeMethod);

  /// SET handler; its only active phase is ACTION. Returns an SNMP error status.
  static int writeObject(int action, u_char* varVal, u_char varValType, size_t varValLen,
                         u_char* statP, oid* name, size_t nameLen);
};

}  // namespace norva

#endif  // NORVA_SNMP_AGENT_X_H_
