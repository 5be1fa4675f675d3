// The end of the process on SIGTERM: "get SIGNUM!", shutdown of the agent library, then killall of
// every process of the agent's name, its own included.
//
// The signal handler itself only wakes this thread: shutting the library down inside a handler that
// interrupted the library hangs, and takes the master agent with it. The thread takes the library
// gate with a bounded wait and leaves the shutdown out when a request is in the middle of a device
// round trip that does not end in that time. A second thread, the watchdog, runs the killall in any
// case after kLimit, whatever the first one waits for. The killall itself is given a second, then
// the process ends without it. Signals are not blocked for this: programs started through the shell
// would inherit the mask.

#ifndef NORVA_TERMINATION_H_
#define NORVA_TERMINATION_H_

#include <semaphore.h>

#include <chrono>

#include "Thread.h"

namespace norva {

class Termination : public Thread {
 public:
  static constexpr std::chrono::milliseconds kGateLimit{1000};
  static constexpr std::chrono::seconds kLimit{3};

  /// Name under which the library's shutdown keeps its persistent data. Null unless the agent only
  /// attaches (-X): deliberate, what the default mode leaves is not read at its next start.
  static inline const char* agentXName = nullptr;

  /// Before the handler is installed SIGTERM ends the process by its default action, but for the
  /// first process of a container, which has none: that is given one here. Main thread, before any
  /// other is started: each of them may be the one that the signal interrupts.
  static void beforeStartUp();

  /// Starts the two threads, after beforeStartUp(). False when the system refuses them; `handler`
  /// is not to be installed then. Main thread, once.
  static bool prepare();

  /// For signal(): wakes the termination thread for SIGTERM, SIGINT and SIGKILL, ignores others.
  /// Async-signal-safe; any thread.
  static void handler(int signalNumber);

  void run() override;

 private:
  class Watchdog : public Thread {
   public:
    Watchdog();
    void run() override;
    void arm() { sem_post(&_armed); }

   private:
    sem_t _armed;
  };

  Termination();

  static Termination* _instance;

  sem_t _requested;
  Watchdog _watchdog;
};

}  // namespace norva

#endif  // NORVA_TERMINATION_H_
