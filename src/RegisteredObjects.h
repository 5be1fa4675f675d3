// What the agent has registered of the unit, for whoever tells of it: how much, and where it
// stands.
//
// One object for the process, never freed. Main thread, at start-up; the counts for any thread.

#ifndef NORVA_REGISTERED_OBJECTS_H_
#define NORVA_REGISTERED_OBJECTS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "AgentStatistics.h"
#include "ServedObjects.h"

namespace norva {

class RegisteredObjects {
 public:
  static RegisteredObjects& get();

  void addScalar(Oid place);
  /// `cells`: how many of them stand for an object of the unit.
  void addTable(Oid place, std::size_t cells);

  /// All of it is registered from now on.
  void complete() { _isComplete = true; }
  bool isComplete() const { return _isComplete; }
  std::uint32_t scalars() const { return _scalars.value(); }
  std::uint32_t tables() const { return _tables.value(); }
  std::uint32_t cells() const { return _cells.value(); }

  /// Whether something stands at, below or above `place`.
  bool meets(const Oid& place) const;

 private:
  std::atomic<bool> _isComplete = false;
  Counter _scalars;
  Counter _tables;
  Counter _cells;
  std::vector<Oid> _places;
};

}  // namespace norva

#endif  // NORVA_REGISTERED_OBJECTS_H_
