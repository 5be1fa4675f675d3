// The control socket: a Unix stream socket that takes one command line a connection. The answer is
// a line "ok", or "error: " and the reason, then the command's own lines, then the end of the
// stream.

#ifndef NORVA_DASUNIT_CONTROL_SOCKET_H_
#define NORVA_DASUNIT_CONTROL_SOCKET_H_

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <thread>

namespace norva::dasunit {

/// An open file descriptor, closed with the object.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  const int number_;
};

/// The unit's end. Not thread-safe itself; commands run on a thread per connection, so that one
/// that waits does not hold up the others.
class ControlServer {
 public:
  /// Carries out a command line, returns its answer or throws InputError. Called on any thread.
  using Execute = std::function<std::string(std::string_view line)>;

  /// Listens at `path`. A socket there that nobody listens at is replaced; throws InputError for
  /// anything else there.
  ControlServer(std::string path, Execute execute);
  /// Stops listening, unlinks the path, waits for the commands that run.
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Readable when accept has something to do.
  int descriptor() const { return listener_.number(); }
  /// Takes one waiting connection.
  void accept();

 private:
  struct Connection;

  void listen();
  void serve(Connection& connection) const;

  const std::string path_;
  const Execute execute_;
  const Descriptor listener_;
  std::list<Connection> connections_;
};

/// The client's end: sends one command line, returns the lines of its answer. Retries for
/// `patience` while nobody listens at `path`. Throws InputError, also with the reason of an error
/// answer.
std::string sendCommand(const std::string& path, std::string_view line,
                        std::chrono::milliseconds patience);

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_CONTROL_SOCKET_H_
