// How the list of scalars becomes entries of the agent library. Main thread, at start-up.

#ifndef NORVA_SCALAR_REGISTRATION_H_
#define NORVA_SCALAR_REGISTRATION_H_

#include <vector>

#include "AgentLibrary.h"
#include "ObjInfo.h"

namespace norva {

/// Registers those of `objects` that are served (see ServedObjects), giving each its 1-based
/// position as magic; every object left out is reported.
void registerScalars(std::vector<SnmpObjRecord>& objects, const std::vector<oid>& root);

}  // namespace norva

#endif  // NORVA_SCALAR_REGISTRATION_H_
