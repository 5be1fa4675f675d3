// The library's side of the notifications: takes them out of the queue, gives each its OIDs and
// bindings and hands them to the agent library. Made by start-up, never freed.
//
// For the holder of the library gate; hasWork for any thread.

#ifndef NORVA_NOTIFICATION_SENDER_H_
#define NORVA_NOTIFICATION_SENDER_H_

#include <cstddef>

#include "LibraryGate.h"
#include "NotificationQueue.h"

namespace norva {

class NotificationSender : public LibraryWork {
 public:
  /// `withContext`: notifications carry the context name that SNMPv3 receivers see. `queue` is not
  /// owned.
  NotificationSender(NotificationQueue& queue, bool withContext);

  bool hasWork() const override { return _queue.hasWork(); }
  void perform(std::size_t most) override;
  void deviceWait(bool begins) override { _queue.deviceWait(begins); }

 private:
  void send(const NotificationQueue::Numbered& notification) const;

  NotificationQueue& _queue;
  const bool _withContext;
};

}  // namespace norva

#endif  // NORVA_NOTIFICATION_SENDER_H_
