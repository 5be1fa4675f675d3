// Who may touch the agent library. It is not thread safe, yet notifications come from threads of
// their own while the main thread serves requests. One object for the whole process, never freed.
//
// The rule: library state is touched by the gate's holder only. The main thread holds the gate,
// also while it waits for work inside processEvents. What other threads want done with the library
// they announce as work, and the holder does it: the main thread between two turns of its loop,
// woken through a file descriptor that `open` registers with the library; or the announcing thread
// itself while a request handler waits for the device (DeviceWait), so that a silent control
// process does not stop notifications. Nobody waits for the gate.
//
// Lock order, outermost first: the gate, then the device mutex, the catalogue mutex or the lock of
// the notifications. The request path pays two uncontended lock operations for each device wait and
// no system call.

#ifndef NORVA_LIBRARY_GATE_H_
#define NORVA_LIBRARY_GATE_H_

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <utility>

namespace norva {

/// What is to be done with the library on behalf of other threads.
class LibraryWork {
 public:
  virtual ~LibraryWork() = default;
  /// Any thread; takes no lock.
  virtual bool hasWork() const = 0;
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

  /// Registers the wake-up descriptor with the library. Main thread, once, after init_snmp. Returns
  /// 0, or -1 after printing the failure.
  int open();

  /// `work` is what announce speaks of. Main thread, once, before anybody announces. Not owned.
  void setWork(LibraryWork& work) { _work = &work; }
  /// `end` is the last that is done with the library: by the main thread alone, between two turns
  /// of its loop, in front of all work. Main thread, once, before requests are served.
  void setEnd(std::function<void()> end) { _end = std::move(end); }
  /// As the work's own, the end included. Main thread, between two turns of its loop.
  bool hasWork() const { return _endIsDue || _work->hasWork(); }
  void performWork(std::size_t most);
  /// Tells that there is work. Any thread but the main one; never waits.
  void announce();
  /// Asks for the end, or no longer. The same.
  void announceEnd(bool isDue);

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

 private:
  void beginDeviceWait();
  void endDeviceWait();
  /// Does the work while the main thread waits for the device. False when it does not.
  bool workDuringWait();
  /// Makes the wake-up descriptor readable, or no longer so.
  void wakeMainThread();
  void wakeUpSeen();

  LibraryWork* _work = nullptr;
  std::function<void()> _end;
  std::atomic<bool> _endIsDue = false;
  std::mutex _mutex;                  // guards everything below
  std::condition_variable _returned;  // the main thread waits for the gate's return
  int _wakeFd = -1;
  bool _wakePending = false;  // the wake-up descriptor is readable
  bool _deviceWait = false;   // the main thread waits for the device
  bool _borrowed = false;     // another thread holds the gate
};

}  // namespace norva

#endif  // NORVA_LIBRARY_GATE_H_
