// Access to the unit's device objects: the one way in which the rest of the agent reads or writes
// them, raw (getObjValue, setObjValue) or as SNMP values (getSnmpValue, setSnmpValue).
//
// One mutex is held for a whole round trip (flush, send, blocking receive, decode), so at most one
// device request is outstanding. Without a limit a silent control process blocks every caller but
// readAlarm. The mutex is never held while the catalogue is asked, and a set takes it twice, for
// its read and for its write; another thread's request may come in between.
//
// Whether the unit is silent is known here alone: `timeouts` counts, isSilentSince judges and
// tells.

#ifndef NORVA_DATA_MANAGE_H_
#define NORVA_DATA_MANAGE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "AgentStatistics.h"
#include "ComPortAdapter.h"
#include "DeviceForm.h"
#include "ObjValue.h"
#include "ObjectProtocol.h"
#include "ReplyTimer.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

class SnmpDataBase;

/// Device objects that the agent itself reads.
enum AgentObject : std::uint16_t {
  kObjOidPrefix = 0x80BA,            ///< text: root OID of the scalars, prefix of the tables
  kObjNotificationVersion = 0x0611,  ///< first byte 0: SNMPv2c, else SNMPv3
  kObjHeartBeatInterval = 0x0FFA,    ///< first byte: minutes between heartbeats
  kObjHeartBeatSwitch = 0x0FFB,      ///< first byte: 0 off
};

/// What became of a write. That the unit refused it is known from its reply alone: after every
/// other end of the exchange, one without a reply or with one that cannot be received, it counts as
/// not answered and may have been carried out. One that the unit was not asked for was not.
enum class WriteResult { kDone, kRefused, kUnanswered, kNotAsked };

class DataManage {
 public:
  /// Result of getObjValue and setObjValue on failure. Deliberate: not -1. Callers that test for -1
  /// go on with the record as the failed call left it.
  static constexpr int kFailed = 255;

  /// The process-wide instance, made (with its queues) on the first call and never destroyed.
  /// The first call belongs to start-up, before any other thread asks for it.
  static DataManage* getInstance();

  ~DataManage();
  DataManage(const DataManage&) = delete;
  DataManage& operator=(const DataManage&) = delete;

  /// Reads object `oid`. Returns 0 with `objLen`, `attr` and value of `record` filled and its `oid`
  /// left alone, or kFailed after printing why. The first reply that comes is taken as the answer,
  /// whatever its object id, unless replies are matched. Until waits are limited, in start-up, a
  /// read under which the control process makes its queues anew is repeated, three times at most.
  /// Any thread.
  int getObjValue(std::uint16_t oid, ObjValue& record);

  /// Writes `record`'s value, of its `objLen`, to object `oid`. Main thread.
  WriteResult write(std::uint16_t oid, const ObjValue& record);
  /// The same. Returns 0 when the device acknowledged, else kFailed.
  int setObjValue(std::uint16_t oid, const ObjValue& record);

  /// From now on another object's value and acknowledgements are skipped while a reply is waited
  /// for: they come late, from requests that have not waited for them. Main thread, before any
  /// other thread reads.
  static void matchReplies() { _matchesReplies = true; }
  /// Limits every wait for a reply from now on; 0: no limit. A request that waits longer fails, and
  /// so does one that waited that long for another thread's. Main thread, once, where start-up
  /// ends.
  void limitWaits(std::chrono::seconds limit);
  /// Number of requests that the limit has ended. Any thread.
  unsigned timeouts() const { return AgentStatistics::get().unitTimeouts.value(); }
  /// Whether one has ended since `timeouts` was that. Then `oid` need not be asked for, which is
  /// printed. Any thread.
  bool isSilentSince(unsigned timeouts, std::uint16_t oid) const;

  /// Waits for one message of the alarm queue; as ComPortAdapter::readAlarm, with `hand` if that is
  /// given. Takes no lock: the alarm thread never waits behind a device request.
  int readAlarm(std::uint8_t* buffer, std::size_t length, std::uint8_t* hand = nullptr);
  /// As ComPortAdapter::endAlarms.
  void endAlarms();
  /// Takes one message off the alarm queue unread; as ComPortAdapter::dropAlarm.
  bool dropAlarm();

  /// Reads the object named by `record.oid` and brings it into its SNMP presentation: an integer
  /// widened to 32 bits (`objLen` 7) or a text. Returns 0 with `presentation`, if given, filled, or
  /// -1 when the object is not mapped or an integer has no usable length. Main thread.
  int getSnmpValue(ObjValue& record, const SnmpDataBase& catalogue,
                   Presentation* presentation = nullptr);

  /// Writes the SNMP value in `record` (a 32-bit integer or a text) to the object named by
  /// `record.oid`; length and kind are the device's. Returns -1 when the write is refused: object
  /// read-only, not mapped, or toDevice has no value for it, which tells of `isAddress` too.
  /// Otherwise the result of setObjValue, which callers take as success either way. Main thread.
  int setSnmpValue(ObjValue& record, const SnmpDataBase& catalogue, bool isAddress = false);

  /// Set once setObjValue has been asked to write the heartbeat objects. Main thread.
  static inline bool heartBeatIntervalChanged = false;
  static inline bool heartBeatSwFlagChanged = false;

 private:
  DataManage();

  /// getObjValue once: 0, the error of the receive, or kFailed.
  int tryGet(std::uint16_t oid, ObjValue& record);
  /// The lock for one round trip; not held, which is printed, when the limit has run out meanwhile.
  std::unique_lock<std::mutex> lockUnit(std::uint16_t oid);

  // All below REQUIRE the lock.

  /// Waits for the reply to a request for `oid`, a message of `awaited` and of at most `limit`
  /// bytes. Returns 0 with `reply` filled, zeros behind what came as far as it is looked at; or the
  /// error, printed.
  /// REQUIRES: `reply` holds what ComPortAdapter::read wants, and no less than kMinGetReplyBuffer.
  int awaitReply(Command awaited, std::uint16_t oid, std::uint8_t* reply, std::size_t limit);
  /// Whether a message is the late reply to an earlier request: of the other kind, or another
  /// object's value. One of the same object's is as good as its own.
  bool isLate(const std::uint8_t* reply, Command awaited, std::uint16_t oid) const;
  /// After a read that failed with `error`: counts a silent unit, and takes a reply that is too
  /// large off the queue, where it would fail every later read too. Either is reported.
  void afterFailedRead(std::uint16_t oid, int error, const UnitExchange& exchange);

  std::mutex _mutex;  // guards the channel's request and reply queues
  ReplyTimer _replyTimer{kReplyQueueKey};
  std::unique_ptr<ComPortAdapter> _pComPortAdapter;
  const std::unique_ptr<SnmpObjConvertStrategy> _pConvertStrategy;
  std::atomic<bool> _isStarting = true;
  static inline bool _matchesReplies = false;
};

}  // namespace norva

#endif  // NORVA_DATA_MANAGE_H_
