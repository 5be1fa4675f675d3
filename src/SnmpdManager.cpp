#include "SnmpdManager.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "DeviceLayout.h"
#include "Output.h"
#include "Shell.h"

namespace norva {

namespace {

constexpr char kConfDirectory[] = "/etc/snmp";
constexpr char kKillCommand[] = "killall -9 snmpd";
constexpr char kFinding[] = "duplicate registration";
constexpr std::size_t kLineSize = 256;  // its end included
constexpr unsigned kPassInterval = 10;  // seconds

bool isDirectory(const char* path) {
  DIR* directory = opendir(path);
  if (directory == nullptr) return false;
  closedir(directory);
  return true;
}

void prepareDirectories() {
  const std::string mibDirectory = kMibDirectory;
  if (!isDirectory(kMibDirectory)) {
    runInShell("mkdir -p " + mibDirectory);
    runInShell(std::string("cp -r ") + kMibSourceDirectory + " " + mibDirectory);
  }
  if (!isDirectory(kConfDirectory)) runInShell(std::string("mkdir ") + kConfDirectory);
}

bool reportsFinding() {
  std::FILE* log = std::fopen(kSnmpdLog, "re");  // no program that is started inherits it
  if (log == nullptr) return false;
  char line[kLineSize + 1];
  char& last = line[kLineSize - 1];
  bool isFound = false;
  do {
    last = '\0';
    if (std::fgets(line, sizeof line, log) == nullptr) break;
    // Deliberate: a line that does not fit ends the search, and what is behind it is not seen.
    if (last != '\0' && last != '\n') break;
    isFound = std::strstr(line, kFinding) != nullptr;
  } while (!isFound);
  std::fclose(log);
  return isFound;
}

bool isTooLarge() {
  struct stat status {};
  stat(kSnmpdLog, &status);
  return static_cast<std::int32_t>(status.st_size) > SnmpdManager::kMaxLogSize;
}

}  // namespace

SnmpdManager::SnmpdManager(const std::string& command) : Thread(kRunning, 0, 0), _command(command) {
  Thread::start();
  markRunning();
}

void SnmpdManager::run() {
  for (;;) {
    if (reportsFinding()) restartIf(reportsFinding);
    if (isTooLarge()) restartIf(isTooLarge);
    reapOrphans();
    sleep(kPassInterval);
  }
}

void SnmpdManager::reapOrphans() {
  if (getpid() != 1) return;
  const std::lock_guard lock(_restartMutex);  // whose holder waits for children of its own
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

void SnmpdManager::restartIf(bool (*isNeeded)()) {
  const std::lock_guard lock(_restartMutex);
  // The other supervisor may have seen the same and restarted already.
  if (!isNeeded()) return;
  runInShell(kKillCommand);
  runInShell(std::string("rm ") + kSnmpdLog);
  runInShell("sync");
  launchInShell(_command);
}

int startSnmpd(const MasterAgent*, const char* confPath, const char* udpPort,
               const char* transport) {
  prepareDirectories();
  const std::string command = std::string(kSnmpdProgram) + " -x " + transport + " -f -Le -c " +
                              confPath + " UDP:" + udpPort + " -Lf " + kSnmpdLog + " &";
  runInShell(kKillCommand);
  Output::print("cmd->%s\n", command.c_str());
  launchInShell(command);
  auto* manager = new SnmpdManager(command);
  // Deliberate: a second supervisor on the same object.
  manager->start();
  manager->markRunning();
  return 0;
}

}  // namespace norva
