// Tells the service manager how things are, where one listens (NOTIFY_SOCKET): that the agent is
// ready, and a line of text whenever that line changes.
//
// One object, never freed, with a thread of its own that looks once a second: whoever serves
// requests tells it nothing. Without the variable there is no thread, and nothing is different.

#ifndef NORVA_SERVICE_STATUS_H_
#define NORVA_SERVICE_STATUS_H_

#include <chrono>
#include <string>

#include "Worker.h"

namespace norva {

class ServiceStatus : private Worker {
 public:
  /// The agent is ready when managers can be served, and so long after its start in any case: no
  /// boot is to hang on a unit or a master that is not there yet.
  static constexpr std::chrono::seconds kPatience{10};
  /// A unit that has owed a reply for so long is called silent.
  static constexpr std::chrono::seconds kSilence{3};

  /// Begins, where there is a service manager. The variable goes out of the environment: no program
  /// that the agent starts is to speak for it. `database` and the master's `address` are what
  /// status lines name. Main thread, once, before anything else is started.
  static void follow(const char* database, const char* address);

 private:
  struct Line {
    std::string text;
    bool isServing;  ///< managers can be served
  };

  ServiceStatus(std::string socket, const char* database, const char* address);

  void run() override;
  /// How things are.
  Line look() const;
  /// Sends one datagram. False when nobody took it.
  bool send(const std::string& message) const;

  const std::string _socket;
  const std::string _database;
  const std::string _address;
};

}  // namespace norva

#endif  // NORVA_SERVICE_STATUS_H_
