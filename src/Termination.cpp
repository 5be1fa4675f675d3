#include "Termination.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "AgentLibrary.h"
#include "LibraryGate.h"
#include "MasterSession.h"
#include "Output.h"
#include "Shell.h"

namespace norva {

namespace {

/// How long killall may take. It ends the process itself.
constexpr std::chrono::milliseconds kKillLimit{1000};
constexpr std::chrono::milliseconds kOutputLimit{500};

/// The process ends through killall. Where that is missing or hangs, or the process runs under
/// another name (an emulator, a debugger), it ends itself; process 1 of a container does not die of
/// a signal.
[[noreturn]] void killAll() {
  runInShell("killall -9 norvaSnmp", kKillLimit);
  kill(getpid(), SIGKILL);
  _exit(128 + SIGKILL);
}

void waitFor(sem_t& semaphore) {
  while (sem_wait(&semaphore) == -1 && errno == EINTR) {
  }
}

}  // namespace

Termination* Termination::_instance = nullptr;

void Termination::beforeStartUp() {
  _instance = new Termination;
  if (getpid() != 1) return;
  signal(SIGTERM, [](int) { _exit(128 + SIGTERM); });
}

Termination::Watchdog::Watchdog() {
  sem_init(&_armed, 0, 0);
}

void Termination::Watchdog::run() {
  waitFor(_armed);
  std::this_thread::sleep_for(kLimit);
  killAll();
}

Termination::Termination() {
  sem_init(&_requested, 0, 0);
}

bool Termination::prepare(std::function<void()> letLeave) {
  _instance->_letLeave = std::move(letLeave);
  LibraryGate::getInstance().setEnd([] { _instance->shutDown(); });
  if (_instance->_watchdog.start() && _instance->startWorker()) return true;
  Output::puts(kThreadRefused);
  return false;
}

void Termination::handler(int signalNumber) {
  if (signalNumber != SIGTERM && signalNumber != SIGINT && signalNumber != SIGKILL) return;
  const int error = errno;
  sem_post(&_instance->_requested);
  errno = error;
}

void Termination::run() {
  waitFor(_requested);
  _watchdog.arm();
  Output::puts("get SIGNUM!");
  _letLeave();
  askForShutdown();
  Output::getInstance().drain(kOutputLimit);
  Output::standardError().drain(kOutputLimit);
  killAll();
}

void Termination::askForShutdown() {
  LibraryGate& gate = LibraryGate::getInstance();
  std::unique_lock lock(_mutex);
  _shutdown = Shutdown::kAsked;
  gate.announceEnd(true);
  const auto isDone = [this] { return _shutdown == Shutdown::kDone; };
  if (_isDone.wait_for(lock, kShutdownLimit, isDone)) return;
  if (_shutdown == Shutdown::kBegun) {
    _isDone.wait(lock, isDone);
  } else {
    _shutdown = Shutdown::kNotAsked;
    gate.announceEnd(false);
  }
}

void Termination::shutDown() {
  {
    const std::lock_guard lock(_mutex);
    if (_shutdown != Shutdown::kAsked) return;
    _shutdown = Shutdown::kBegun;
  }
  MasterSession::cut();
  snmp_shutdown(agentXName);
  {
    const std::lock_guard lock(_mutex);
    _shutdown = Shutdown::kDone;
    _isDone.notify_one();
  }
  for (;;) pause();  // there is no library left to serve with
}

}  // namespace norva
