#include "ServiceStatus.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <thread>
#include <utility>

#include "AgentStatistics.h"
#include "MasterSession.h"
#include "OneLine.h"
#include "RegisteredObjects.h"

namespace norva {

namespace {

constexpr char kVariable[] = "NOTIFY_SOCKET";
constexpr std::chrono::seconds kPause{1};

}  // namespace

void ServiceStatus::follow(const char* database, const char* address) {
  const char* socket = std::getenv(kVariable);
  if (socket == nullptr || *socket == '\0') return;
  auto* status = new ServiceStatus(socket, database, address);
  unsetenv(kVariable);
  ReplyTimes::get().start();
  status->startWorker();
}

ServiceStatus::ServiceStatus(std::string socket, const char* database, const char* address)
    : _socket(std::move(socket)), _database(oneLine(database)), _address(oneLine(address)) {}

void ServiceStatus::run() {
  const auto patienceEnds = std::chrono::steady_clock::now() + kPatience;
  bool isReady = false;
  std::string told;
  for (;; std::this_thread::sleep_for(kPause)) {
    const auto [text, isServing] = look();
    const bool becomesReady =
        !isReady && (isServing || std::chrono::steady_clock::now() >= patienceEnds);
    if (!becomesReady && text == told) continue;
    if (!send((becomesReady ? "READY=1\nSTATUS=" : "STATUS=") + text)) continue;  // tried again
    isReady = isReady || becomesReady;
    told = text;
  }
}

ServiceStatus::Line ServiceStatus::look() const {
  const auto& registered = RegisteredObjects::get();
  const bool isSilent = std::chrono::milliseconds(ReplyTimes::get().silence()) >= kSilence;
  if (!registered.isComplete()) {
    return {isSilent ? "waiting for the unit: its control process does not answer" : "starting",
            false};
  }
  if (registered.scalars() + registered.cells() == 0) {
    return {"nothing to serve: no object found in the mapping database " + _database, false};
  }
  if (!MasterSession::isServing()) return {"no master agent at " + _address, false};
  const std::string serving = "serving " + std::to_string(registered.scalars()) + " scalars and " +
                              std::to_string(registered.cells()) + " cells";
  return {isSilent ? "the unit is silent; " + serving : serving, true};
}

bool ServiceStatus::send(const std::string& message) const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (_socket.size() >= sizeof address.sun_path) return false;
  std::copy(_socket.begin(), _socket.end(), address.sun_path);
  if (address.sun_path[0] == '@') address.sun_path[0] = '\0';  // an abstract name
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + _socket.size());

  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const ssize_t sent = sendto(fd, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                              reinterpret_cast<const sockaddr*>(&address), size);
  close(fd);
  return sent == static_cast<ssize_t>(message.size());
}

}  // namespace norva
