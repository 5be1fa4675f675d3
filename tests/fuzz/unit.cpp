// The simulated unit: its object file, its control commands and what it answers to any request.
// A line that begins with '>' is the bytes of a request, every other one a command.

#include <csignal>
#include <sstream>

#include "Commands.h"
#include "DeviceObject.h"
#include "Fuzz.h"
#include "ObjectFile.h"
#include "ObjectProtocol.h"
#include "Unit.h"

namespace norva::fuzz {
namespace {

using dasunit::InputError;

void request(dasunit::Unit& unit, const Bytes& frame) {
  const Bytes reply = unit.objects().answer(frame);
  MUST(!reply.empty());
  const auto fault = unit.faults().take(frame);
  if (!fault) return;
  for (const Bytes& sent : dasunit::applyFault(*fault, reply)) unit.sendReply(sent);
}

}  // namespace

void run(Input input) {
  const std::string text = input.rest();
  std::size_t sent = 0;
  Queues::get().sent = [&](int, const Bytes& message) {
    MUST(message.size() <= 8000);
    return ++sent < 1000;
  };
  const std::size_t split = std::min(text.find("\n\n"), text.size());
  std::vector<dasunit::DeviceObject> objects;
  try {
    std::istringstream file(text.substr(0, split));
    objects = dasunit::parseObjects(file, "fuzz");
  } catch (const InputError& error) {
    MUST(std::string(error.what()).starts_with("fuzz:"));
  }
  dasunit::Unit unit(objects, "");
  std::istringstream commands(text.substr(split));
  for (std::string line; std::getline(commands, line);) {
    try {
      if (line.starts_with('>')) {
        request(unit, dasunit::parseHex(line.substr(1)));
      } else {
        const std::string answer = dasunit::execute(unit, line);
        MUST(answer.empty() || answer.back() == '\n');
      }
    } catch (const InputError& error) {
      MUST(std::string_view(error.what()).size() > 0);
    }
  }
}

}  // namespace norva::fuzz

// The command that ends the unit does not end the target.
extern "C" int kill(pid_t, int) noexcept {
  return 0;
}
