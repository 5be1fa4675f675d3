// The end of the process on SIGTERM: "get SIGNUM!", shutdown of the agent library, then killall of
// every process of the agent's name, its own included. One object, made on the main thread and
// never freed; two threads of its own, the second being the watchdog.
//
// From the signal on nothing is taken off the alarm queue, and what was taken before leaves while
// the session with the master stands. The signal handler only wakes the first thread: shutting the
// library down inside a handler that interrupted the library hangs, and takes the master agent with
// it. The thread announces the shutdown at the library gate; the main thread does it between two
// requests and serves no more. It is left out when a request is in the middle of a device round
// trip that does not end within kShutdownLimit. The watchdog runs the killall in any case after
// kLimit, whatever the first thread waits for. The killall itself is given a second, then the
// process ends without it. Signals are not blocked for this: programs started through the shell
// would inherit the mask.

#ifndef NORVA_TERMINATION_H_
#define NORVA_TERMINATION_H_

#include <semaphore.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "Worker.h"

namespace norva {

class Termination : private Worker {
 public:
  static constexpr std::chrono::milliseconds kShutdownLimit{1000};
  static constexpr std::chrono::seconds kLimit{3};

  /// Name under which the library's shutdown keeps its persistent data. Null unless the agent only
  /// attaches (-X): deliberate, what the default mode leaves is not read at its next start.
  static inline const char* agentXName = nullptr;

  /// Before the handler is installed SIGTERM ends the process by its default action, but for the
  /// first process of a container, which has none: that is given one here. Main thread, before any
  /// other is started: each of them may be the one that the signal interrupts.
  static void beforeStartUp();

  /// Starts the two threads, after beforeStartUp(). False when the system refuses them, which is
  /// printed; `handler` is not to be installed then. Main thread, once, before requests are served.
  /// `letLeave` is what the end begins with, before the library is shut down; bounded, on the
  /// termination thread.
  static bool prepare(std::function<void()> letLeave);

  /// For signal(): wakes the termination thread for SIGTERM, SIGINT and SIGKILL, ignores others.
  /// Async-signal-safe; any thread.
  static void handler(int signalNumber);

 private:
  class Watchdog : public Worker {
   public:
    Watchdog();
    bool start() { return startWorker(); }
    void arm() { sem_post(&_armed); }

   private:
    void run() override;

    sem_t _armed;
  };
  enum class Shutdown { kNotAsked, kAsked, kBegun, kDone };

  Termination();
  void run() override;
  /// Has the main thread shut the library down.
  void askForShutdown();
  /// The shutdown. Main thread, between two requests.
  void shutDown();

  static Termination* _instance;

  sem_t _requested;
  Watchdog _watchdog;
  std::function<void()> _letLeave;
  std::mutex _mutex;  // guards what is below
  std::condition_variable _isDone;
  Shutdown _shutdown = Shutdown::kNotAsked;
};

}  // namespace norva

#endif  // NORVA_TERMINATION_H_
