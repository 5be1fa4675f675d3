#include "Termination.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "AgentLibrary.h"
#include "LibraryGate.h"
#include "MasterSession.h"

namespace norva {

namespace {

/// Does not return. The process ends through killall; where that is missing, or the process runs
/// under another name (an emulator, a debugger), it ends itself.
[[noreturn]] void killAll() {
  [[maybe_unused]] const int status = std::system("killall -9 norvaSnmp");
  kill(getpid(), SIGKILL);
  for (;;) pause();
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
  _instance = new Termination;
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
  std::puts("get SIGNUM!");
  std::fflush(stdout);
  const LibraryGate::Loan loan(LibraryGate::getInstance(), kGateLimit);
  if (loan.held()) shutDownLibrary(loan, agentXName);
  std::fflush(stdout);
  killAll();
}

}  // namespace norva
