// The unit's objects and how often each was asked for. Thread-safe: one mutex guards everything,
// no call leaves the class while it is held.

#ifndef NORVA_DASUNIT_OBJECT_STORE_H_
#define NORVA_DASUNIT_OBJECT_STORE_H_

#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "DeviceObject.h"

namespace norva::dasunit {

/// Command byte of the reply to a request that cannot be carried out. The simulation's own choice:
/// the protocol has no such reply, and the agent takes any command it does not expect as a failure.
constexpr std::uint8_t kCommandRefused = 0x1F;

/// Requests for one object, refused ones included.
struct RoundTrips {
  std::uint64_t gets = 0;
  std::uint64_t sets = 0;
};

class ObjectStore {
 public:
  /// Defines objects, each replacing one of the same id.
  void add(const std::vector<DeviceObject>& objects);
  std::size_t size() const;

  /// The operations by id throw InputError when there is no such object.
  DeviceObject get(std::uint16_t id) const;
  /// The unit's own change, which read-only objects take too. `word` is a value of the object
  /// file; a text may come without quotes. Throws InputError for a value the object cannot have.
  void set(std::uint16_t id, std::string_view word);
  void remove(std::uint16_t id);

  /// Carries out one request frame and returns the reply frame: a get reply, a set reply, or a
  /// refusal for an unknown object, a set of a read-only object, a set of another length than the
  /// object's, or a frame that is no request.
  Bytes answer(std::span<const std::uint8_t> request);

  /// Also for ids without an object.
  RoundTrips roundTrips(std::uint16_t id) const;
  void resetRoundTrips();

 private:
  DeviceObject& find(std::uint16_t id);

  mutable std::mutex mutex_;
  std::unordered_map<std::uint16_t, DeviceObject> objects_;
  std::unordered_map<std::uint16_t, RoundTrips> roundTrips_;
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_OBJECT_STORE_H_
