// The simulated unit: its objects behind the request and reply queues, served by a thread of its
// own, and its alarm queue. Any thread may use it between start and stop.

#ifndef NORVA_DASUNIT_UNIT_H_
#define NORVA_DASUNIT_UNIT_H_

#include <atomic>
#include <chrono>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "DeviceObject.h"
#include "Fault.h"
#include "MessageQueue.h"
#include "ObjectStore.h"
#include "Recorder.h"
#include "Statistics.h"

namespace norva::dasunit {

class Unit {
 public:
  /// Attaches to the queues. Throws InputError when a queue or the record file cannot be had.
  Unit(const std::vector<DeviceObject>& objects, const std::string& recordPath);
  /// Stops. The queues stay in the system, as the agent may be waiting in them.
  ~Unit();
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;

  /// Starts answering requests. To be called once.
  void start();
  /// Stops answering, and ends the waits of postAlarm; the first step of the end. The thread that
  /// called start calls it.
  void stop();
  /// True when the request queue failed, which ends the program by SIGTERM.
  bool failed() const { return failed_; }

  ObjectStore& objects() { return objects_; }
  FaultPlan& faults() { return faults_; }
  Statistics& statistics() { return statistics_; }
  Recorder& recorder() { return recorder_; }

  /// Puts one message on the reply queue; counts a drop when the queue is full.
  void sendReply(std::span<const std::uint8_t> frame);
  /// Puts one message on the alarm queue, waiting while the queue is full. Throws InputError when
  /// nobody made room for kPostPatience, or when the unit ends.
  void postAlarm(std::span<const std::uint8_t> message);
  /// Removes the queue called request, reply or alarm. Throws InputError for another name.
  void removeQueue(std::string_view name);

  static constexpr std::chrono::seconds kPostPatience{30};

 private:
  void serve();
  void handle(std::span<const std::uint8_t> request);

  Recorder recorder_;
  ObjectStore objects_;
  FaultPlan faults_;
  Statistics statistics_;
  MessageQueue requests_{kRequestQueueKey};
  MessageQueue replies_{kReplyQueueKey};
  MessageQueue alarms_{kAlarmQueueKey};
  std::atomic<bool> failed_{false};
  std::atomic<bool> ended_{false};
  std::stop_source stopping_;
  std::thread server_;  // last: uses all of the above
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_UNIT_H_
