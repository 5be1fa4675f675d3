// The OID below which everything of the unit stands: a text that the unit keeps in an object of its
// own, or the fixed root where that object is of no use. Main thread, at start-up.

#ifndef NORVA_OID_PREFIX_H_
#define NORVA_OID_PREFIX_H_

#include <string>
#include <vector>

#include "AgentLibrary.h"

namespace norva {

/// The scalars' root. The fixed one, silently, when the object cannot be read; printed when its
/// text is no OID.
std::vector<oid> readScalarRoot();

/// What stands in front of a table's node, with a leading dot. The fixed root, printed, when the
/// object cannot be read or its text is no OID.
std::string readTablePrefix();

}  // namespace norva

#endif  // NORVA_OID_PREFIX_H_
