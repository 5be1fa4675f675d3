// Strict SETs: a SET does what the manager asked, or is refused, for scalars and table cells alike.
//
// Everything is checked before anything is written: a request's varbinds are all checked in
// RESERVE1, with one read of the device each (the library has read a scalar once before), and
// written in ACTION. What was written is put back in UNDO, when another varbind of the request has
// failed: one write each, behind a read where the unit has not answered the first write.
//
// Main thread, inside request handlers.

#ifndef NORVA_STRICT_SET_H_
#define NORVA_STRICT_SET_H_

#include <cstdint>
#include <map>
#include <vector>

#include "AgentLibrary.h"
#include "ObjValue.h"
#include "ObjectAccess.h"
#include "SetValue.h"

namespace norva {

class SnmpDataBase;

class StrictSet {
 public:
  /// A varbind's name, whole.
  using Name = std::vector<oid>;

  /// An object as its mapping has it.
  struct Target {
    std::uint16_t objId;
    std::uint16_t asnType;
    bool writable;
  };

  /// Carries out phase `mode` (MODE_SET_...) of a SET of `value` on `target`. Returns an SNMP error
  /// status, any but noError printed: in RESERVE1 notWritable, resourceUnavailable for an object
  /// that cannot be read, or what encodeStrictly returns; in ACTION commitFailed; in UNDO
  /// undoFailed.
  int perform(int mode, const Name& name, const Target& target, const SetValue& value,
              const SnmpDataBase& catalogue);

 private:
  struct Write {
    ObjValue before;
    ObjValue after;
    WriteResult result = WriteResult::kNotAsked;
  };

  int check(const Name& name, const Target& target, const SetValue& value,
            const SnmpDataBase& catalogue);
  int write(const Name& name);
  int undo(const Name& name);

  std::map<Name, Write> _writes;  // of the request that is under way
};

}  // namespace norva

#endif  // NORVA_STRICT_SET_H_
