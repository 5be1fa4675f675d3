// Who may touch the agent library. It is not thread safe, yet notifications are sent by threads of
// their own while the main thread serves requests.
//
// The rule: library state is touched by the gate's holder only. The main thread holds the gate,
// also while it waits for work inside agent_check_and_process, and lends it out at two places:
//   - while a request handler waits for the device (DeviceWait), so that a silent control process
//     does not stop notifications;
//   - between two requests, in the callback of a file descriptor that `open` registers with the
//     library and that a waiting borrower makes readable.
// Another thread borrows it (Loan) for one send. Code that touches the library outside the main
// thread takes a `const Loan&`, so that it cannot be called without one.
//
// A borrower must not fill a socket that nobody reads, or agent and master block each other for
// good: one loan is given in each turn of the main loop, more only while a handler of that turn
// waits for the device, and none while the master owes kMaxUnacknowledged answers to notifications.
// So a flood also leaves the master time to serve managers.
//
// Lock order, outermost first: the gate, then the device mutex or the catalogue mutex. Nobody waits
// for the gate while holding another lock. The request path pays two uncontended lock operations
// for each device wait and no system call.

#ifndef NORVA_LIBRARY_GATE_H_
#define NORVA_LIBRARY_GATE_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace norva {

class LibraryGate {
 public:
  static constexpr int kMaxUnacknowledged = 64;

  static LibraryGate& getInstance();

  LibraryGate() = default;
  LibraryGate(const LibraryGate&) = delete;
  LibraryGate& operator=(const LibraryGate&) = delete;

  /// Registers the wake-up descriptor with the library. Main thread, once, after init_snmp; loans
  /// asked for before wait until then. Returns 0, or -1 after printing the failure.
  int open();

  /// To be called by the main thread before each turn of its loop, with the number of notifications
  /// that the master has not answered.
  void beginTurn(int unacknowledged);

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
    /// Waits for the gate without limit, for one send.
    explicit Loan(LibraryGate& gate) : _gate(gate) { _held = _gate.borrow(Place::kAnywhere, {}); }
    /// Waits no longer than `limit` for the gate between two requests, when no request is in the
    /// middle of anything. Test `held` before touching the library.
    Loan(LibraryGate& gate, std::chrono::milliseconds limit) : _gate(gate) {
      _held = _gate.borrow(Place::kBetweenRequests, limit);
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
  enum class Place { kAnywhere, kBetweenRequests };

  void beginDeviceWait();
  void endDeviceWait();
  /// A `limit` of zero means none. False when it ran out.
  bool borrow(Place place, std::chrono::milliseconds limit);
  void giveBack();
  bool canBorrow(Place place) const;
  /// Makes the wake-up descriptor readable unless it is already. REQUIRES: _mutex held.
  void wakeMainThread();

  std::mutex _mutex;                  // guards everything below but _loansLeft and _deferred
  std::condition_variable _lent;      // borrowers wait for the gate
  std::condition_variable _returned;  // the main thread waits for its return
  std::atomic<int> _loansLeft = kMaxUnacknowledged;  // in this turn
  bool _deferred = false;  // main thread: somebody waits for the master's answers
  int _wakeFd = -1;
  bool _wakePending = false;  // the wake-up descriptor is readable
  int _waiting = 0;           // borrowers without the gate
  int _waitingBetween = 0;    // those of them that want it between requests; they go first
  bool _deviceWait = false;   // the main thread waits for the device
  bool _offered = false;      // the main thread offers one loan between requests
  bool _borrowed = false;
};

}  // namespace norva

#endif  // NORVA_LIBRARY_GATE_H_
