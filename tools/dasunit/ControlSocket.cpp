#include "ControlSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Text.h"

namespace norva::dasunit {

namespace {

constexpr std::string_view kOk = "ok\n";
constexpr std::string_view kError = "error: ";
/// More than the longest command, a message of 8000 bytes in hexadecimal with blanks.
constexpr std::size_t kMaxLine = 1 << 16;
/// A client that sends no whole line must not keep the unit from ending.
constexpr timeval kLinePatience{2, 0};
constexpr std::chrono::milliseconds kConnectRetry{20};

InputError systemError(const std::string& what) {
  return InputError(what + ": " + std::strerror(errno));
}

int makeSocket() {
  const int number = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (number < 0) throw systemError("control socket");
  return number;
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw InputError("control socket " + path + ": the path must have 1 to 107 characters");
  }
  path.copy(address.sun_path, path.size());
  return address;
}

/// connect and bind take any address as this base type.
const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool connectTo(const Descriptor& client, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  return connect(client.number(), generic(address), sizeof address) == 0;
}

void sendAll(const Descriptor& peer, std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = send(peer.number(), text.data(), text.size(), MSG_NOSIGNAL);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return;  // the peer has gone and misses nothing
    text.remove_prefix(static_cast<std::size_t>(size));
  }
}

/// What the peer sends, to the end of the stream or, with `stopAtLine`, of the first line.
std::string receive(const Descriptor& peer, bool stopAtLine) {
  std::string text;
  char chunk[4096];
  while (!stopAtLine || (text.find('\n') == std::string::npos && text.size() < kMaxLine)) {
    const ssize_t size = recv(peer.number(), chunk, sizeof chunk, 0);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    text.append(chunk, static_cast<std::size_t>(size));
  }
  return text;
}

}  // namespace

Descriptor::~Descriptor() {
  close(number_);
}

struct ControlServer::Connection {
  explicit Connection(int number) : client(number) {}

  Descriptor client;
  std::atomic<bool> done{false};
  std::jthread thread;  // last: uses the above
};

ControlServer::ControlServer(std::string path, Execute execute)
    : path_(std::move(path)), execute_(std::move(execute)), listener_(makeSocket()) {
  listen();
}

ControlServer::~ControlServer() {
  unlink(path_.c_str());
  // Nobody waits for lines that have not come; answers still go out.
  for (const Connection& connection : connections_) shutdown(connection.client.number(), SHUT_RD);
  connections_.clear();
}

void ControlServer::listen() {
  const sockaddr_un address = addressOf(path_);
  const std::string what = "control socket " + path_;
  if (bind(listener_.number(), generic(address), sizeof address) != 0) {
    if (errno != EADDRINUSE) throw systemError(what);
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
      throw InputError(what + ": there is a file of another kind");
    }
    if (connectTo(Descriptor(makeSocket()), path_)) {
      throw InputError(what + ": another unit listens here");
    }
    if (errno != ECONNREFUSED) throw systemError(what);
    unlink(path_.c_str());
    if (bind(listener_.number(), generic(address), sizeof address) != 0) throw systemError(what);
  }
  if (::listen(listener_.number(), SOMAXCONN) != 0) throw systemError(what);
}

void ControlServer::accept() {
  connections_.remove_if([](const Connection& connection) { return connection.done.load(); });
  const int number = accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC);
  if (number < 0) return;
  Connection& connection = connections_.emplace_back(number);
  connection.thread = std::jthread([this, &connection] { serve(connection); });
}

void ControlServer::serve(Connection& connection) const {
  setsockopt(connection.client.number(), SOL_SOCKET, SO_RCVTIMEO, &kLinePatience,
             sizeof kLinePatience);
  const std::string text = receive(connection.client, true);
  const std::size_t end = text.find('\n');
  try {
    if (end == std::string::npos) throw InputError("no command line");
    sendAll(connection.client, std::string(kOk) + execute_(text.substr(0, end)));
  } catch (const InputError& error) {
    sendAll(connection.client, std::string(kError) + error.what() + '\n');
  }
  shutdown(connection.client.number(), SHUT_RDWR);
  connection.done = true;
}

std::string sendCommand(const std::string& path, std::string_view line,
                        std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  const Descriptor client(makeSocket());
  while (!connectTo(client, path)) {
    const bool mayCome = errno == ENOENT || errno == ECONNREFUSED;
    if (!mayCome || std::chrono::steady_clock::now() >= deadline) {
      throw systemError("control socket " + path);
    }
    std::this_thread::sleep_for(kConnectRetry);
  }
  sendAll(client, std::string(line) + '\n');
  const std::string answer = receive(client, false);
  if (answer.starts_with(kOk)) return answer.substr(kOk.size());
  if (!answer.starts_with(kError)) throw InputError("the unit ended without an answer");
  throw InputError(answer.substr(kError.size(), answer.size() - kError.size() - 1));
}

}  // namespace norva::dasunit
