// Who may touch the agent library. It is not thread safe, yet notifications come from threads of
// their own while the main thread serves requests.
//
// The rule: library state is touched by the gate's holder only. The main thread holds the gate,
// also while it waits for work inside processEvents. What other threads want done with the library
// they announce as work, and whoever holds the gate does it: the main thread between two turns of
// its loop, woken through a file descriptor that `open` registers with the library; or the
// announcing thread itself while a request handler waits for the device (DeviceWait), so that a
// silent control process does not stop notifications. Nobody waits for the gate but the thread that
// ends the process (Loan).
//
// Lock order, outermost first: the gate, then the device mutex, the catalogue mutex or the lock of
// the notifications. The request path pays two uncontended lock operations for each device wait and
// no system call.

#ifndef NORVA_LIBRARY_GATE_H_
#define NORVA_LIBRARY_GATE_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace norva {

/// What is to be done with the library on behalf of other threads.
class LibraryWork {
 public:
  virtual ~LibraryWork() = default;
  /// Any thread; takes no lock.
  virtual bool isWaiting() const = 0;
  /// Does no more than `most` pieces. For the gate's holder.
  virtual void perform(std::size_t most) = 0;
  /// A device wait begins or ends. Main thread.
  virtual void deviceWait(bool begins) = 0;
};

class LibraryGate {
 public:
  static LibraryGate& getInstance();

  LibraryGate() = default;
  LibraryGate(const LibraryGate&) = delete;
  LibraryGate& operator=(const LibraryGate&) = delete;

  /// Registers the wake-up descriptor with the library. Main thread, once, after init_snmp; loans
  /// asked for before wait until then. Returns 0, or -1 after printing the failure.
  int open();

  /// `work` is what announce speaks of. Main thread, once, before anybody announces. Not owned.
  void setWork(LibraryWork* work) { _work = work; }
  /// The same as the work's own, for the main thread between two turns of its loop.
  bool hasWork() const { return _work->isWaiting(); }
  void performWork(std::size_t most) { _work->perform(most); }
  /// Tells that work waits. Any thread but the main one; never waits.
  void announce();

  /// Lends the gate out while the object lives. Main thread, inside a request handler, around
  /// nothing but a call of the facade, which never touches the library.
  class DeviceWait {
   public:
    explicit DeviceWait(LibraryGate& gate) : _gate(gate) { _gate.beginDeviceWait(); }
    ~DeviceWait() { _gate.endDeviceWait(); }
    DeviceWait(const DeviceWait&) = delete;
    DeviceWait& operator=(const DeviceWait&) = delete;

   private:
    LibraryGate& _gate;
  };

  /// Holds the gate while the object lives. Any thread but the main one; holding no other lock.
  class Loan {
   public:
    /// Waits no longer than `limit` for the gate between two requests, when no request is in the
    /// middle of anything. Test `held` before touching the library.
    Loan(LibraryGate& gate, std::chrono::milliseconds limit) : _gate(gate) {
      _held = _gate.borrow(limit);
    }
    ~Loan() {
      if (_held) _gate.giveBack();
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    bool held() const { return _held; }

   private:
    LibraryGate& _gate;
    bool _held;
  };

  /// Lends the gate for one loan, if somebody waits, and takes it back. Main thread, between two
  /// requests; called by the library when the wake-up descriptor is readable.
  void lendOnce();

 private:
  void beginDeviceWait();
  void endDeviceWait();
  /// Does what waits while the main thread waits for the device. False when it does not.
  bool workDuringWait();
  /// False when the limit ran out.
  bool borrow(std::chrono::milliseconds limit);
  void giveBack();
  /// Makes the wake-up descriptor readable unless it is already. REQUIRES: _mutex held.
  void wakeMainThread();

  LibraryWork* _work = nullptr;
  std::mutex _mutex;                  // guards everything below
  std::condition_variable _lent;      // borrowers wait for the gate
  std::condition_variable _returned;  // the main thread waits for its return
  int _wakeFd = -1;
  bool _wakePending = false;  // the wake-up descriptor is readable
  int _waiting = 0;           // borrowers without the gate
  bool _deviceWait = false;   // the main thread waits for the device
  bool _offered = false;      // the main thread offers one loan between requests
  bool _borrowed = false;
};

}  // namespace norva

#endif  // NORVA_LIBRARY_GATE_H_
