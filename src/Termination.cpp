#include "Termination.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

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

void shutDownLibrary(const LibraryGate::Loan& loan, const char* name) {
  MasterSession::cut(loan);
  snmp_shutdown(name);
}

}  // namespace

Termination* Termination::_instance = nullptr;

void Termination::beforeStartUp() {
  _instance = new Termination;
  if (getpid() != 1) return;
  signal(SIGTERM, [](int) { _exit(128 + SIGTERM); });
}

Termination::Watchdog::Watchdog() : Thread(kRunning, 0, 0) {
  sem_init(&_armed, 0, 0);
}

void Termination::Watchdog::run() {
  waitFor(_armed);
  std::this_thread::sleep_for(kLimit);
  killAll();
}

Termination::Termination() : Thread(kRunning, 0, 0) {
  sem_init(&_requested, 0, 0);
}

bool Termination::prepare() {
  if (_instance->_watchdog.start() != 0 || _instance->start() != 0) return false;
  _instance->_watchdog.markRunning();
  _instance->markRunning();
  return true;
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
  const LibraryGate::Loan loan(LibraryGate::getInstance(), kGateLimit);
  if (loan.held()) shutDownLibrary(loan, agentXName);
  Output::getInstance().drain(kOutputLimit);
  Output::standardError().drain(kOutputLimit);
  killAll();
}

}  // namespace norva
