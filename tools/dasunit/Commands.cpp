#include "Commands.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <limits>

#include "Arguments.h"
#include "ObjectFile.h"
#include "ObjectProtocol.h"
#include "TrapMessage.h"

namespace norva::dasunit {

const char* const kCommandHelp =
    R"(Commands (ID is an object id in hexadecimal, HEX bytes as pairs of digits):
  get ID                      the object, as a line of the object file
  set ID VALUE                change the value, also of a read-only object
  add LINE                    define or replace what a line of the object file defines
  delete ID                   take an object away
  alarm raise|clear ID        post an alarm ...
  ru add|remove ID            ... a remote-unit change ...
  event report|lose ID        ... a general event; options of the three:
      --device-id N  --text4 S  --text5 S  --text6 S  --ru A,B,C  --type N
      --count N                 post it N times, as fast as the queue takes them
      --numbered                text4 counts "1", "2", ...
  post HEX | post --size N    raw message, or N zero bytes, on the alarm queue
  reply HEX                   raw message on the reply queue, unasked
  fault NAME [ARG]            misbehave on replies until 'fault none'; options:
      --count N                 on the next N only
      --object ID               on those to requests for this object only
      --on get|set              on those to this kind of request only
    none, silent, delay MS, wrong-command BYTE, wrong-length N, oversize BYTES,
    truncate BYTES, wrong-id ID, double, stale HEX
  remove-queue request|reply|alarm
  stats | stats ID | stats reset
  sync                        write out the record file
  quit                        end the unit)";

namespace {

constexpr std::int64_t kMaxCount = 100'000'000;

/// A text may come quoted, with the escapes of the object file, or plain.
std::string textArgument(const std::string& word) {
  return isQuoted(word) ? decodeText(word) : word;
}

void parseRuBytes(const std::string& list, TrapMessage& message) {
  std::size_t start = 0;
  for (std::size_t index = 0; index < TrapMessage::kRuByteCount; ++index) {
    const bool isLast = index + 1 == TrapMessage::kRuByteCount;
    const std::size_t comma = isLast ? list.size() : list.find(',', start);
    if (comma == std::string::npos) throw InputError("--ru needs three numbers: A,B,C");
    message.ruBytes()[index] = static_cast<std::uint8_t>(
        parseInteger(list.substr(start, comma - start), "--ru", 0, UINT8_MAX));
    start = comma + 1;
  }
}

void parseTextOption(Arguments& arguments, const std::string& name, TrapMessage::TextField field,
                     TrapMessage& message) {
  const std::optional<std::string> word = arguments.option(name);
  if (!word) return;
  const std::string text = textArgument(*word);
  if (text.size() > TrapMessage::kTextSize) throw InputError(name + " takes at most 64 bytes");
  message.setText(field, text, TrapMessage::kTextSize);
}

/// The two actions of an event command; `set` is the one that raises, adds or reports.
struct EventCommand {
  std::string_view name;
  MsgType type;
  std::string_view set;
  std::string_view cleared;
};

constexpr std::array kEventCommands = {
    EventCommand{"alarm", kMsgAlarm, "raise", "clear"},
    EventCommand{"ru", kMsgRuChange, "add", "remove"},
    EventCommand{"event", kMsgGeneralEvent, "report", "lose"},
};

void postEvent(Unit& unit, const EventCommand& command, Arguments& arguments) {
  TrapMessage message;
  message.setMsgType(static_cast<std::int32_t>(
      arguments
          .numberOption("--type", std::numeric_limits<std::int32_t>::min(),
                        std::numeric_limits<std::int32_t>::max())
          .value_or(command.type)));
  message.setDeviceId(
      static_cast<std::uint8_t>(arguments.numberOption("--device-id", 0, UINT8_MAX).value_or(0)));
  parseTextOption(arguments, "--text4", TrapMessage::kText4, message);
  parseTextOption(arguments, "--text5", TrapMessage::kText5, message);
  parseTextOption(arguments, "--text6", TrapMessage::kText6, message);
  if (const auto list = arguments.option("--ru")) parseRuBytes(*list, message);
  const std::int64_t count = arguments.numberOption("--count", 1, kMaxCount).value_or(1);
  const bool isNumbered = arguments.flag("--numbered");

  const std::string action = arguments.next("action");
  if (action != command.set && action != command.cleared) {
    throw InputError("unknown action '" + action + "': " + std::string(command.set) + " or " +
                     std::string(command.cleared));
  }
  message.setState(action == command.set ? '1' : TrapMessage::kStateCleared);
  message.setObjId(parseObjectId(arguments.next("object id")));
  arguments.end();

  for (std::int64_t number = 1; number <= count; ++number) {
    if (isNumbered) message.setText(TrapMessage::kText4, std::to_string(number));
    try {
      unit.postAlarm({message.data(), TrapMessage::kSize});
    } catch (const InputError& error) {
      throw InputError(std::string(error.what()) + ": posted " + std::to_string(number - 1) +
                       " of " + std::to_string(count));
    }
  }
}

void postRaw(Unit& unit, Arguments& arguments) {
  const auto size = arguments.numberOption("--size", 0, kMaxPayload);
  if (!size && arguments.empty()) throw InputError("missing bytes: post HEX or post --size N");
  const Bytes message = size ? Bytes(static_cast<std::size_t>(*size)) : parseHex(arguments.rest());
  arguments.end();
  unit.postAlarm(message);
}

void planFault(Unit& unit, Arguments& arguments) {
  const auto count = arguments.numberOption("--count", 1, kMaxCount);
  FaultFilter filter;
  if (const auto id = arguments.option("--object")) filter.object = parseObjectId(*id);
  if (const auto request = arguments.option("--on")) {
    if (*request != "get" && *request != "set") throw InputError("--on takes get or set");
    filter.command = *request == "get" ? kCommandGetRequest : kCommandSetRequest;
  }
  const std::string name = arguments.next("fault name");
  if (name == "none") {
    arguments.end();
    unit.faults().clear();
    return;
  }
  std::optional<std::string> argument;
  if (!arguments.empty())
    argument = name == "stale" ? arguments.rest() : arguments.next("argument");
  arguments.end();
  unit.faults().plan(parseFault(name, argument), filter, count);
}

std::string statistics(Unit& unit, Arguments& arguments) {
  if (arguments.empty()) return unit.statistics().format();
  const std::string word = arguments.next("object id");
  arguments.end();
  if (word == "reset") {
    unit.statistics().reset();
    unit.objects().resetRoundTrips();
    return {};
  }
  const RoundTrips roundTrips = unit.objects().roundTrips(parseObjectId(word));
  return "gets " + std::to_string(roundTrips.gets) + "\nsets " + std::to_string(roundTrips.sets) +
         '\n';
}

std::string getObject(Unit& unit, Arguments& arguments) {
  const std::uint16_t id = parseObjectId(arguments.next("object id"));
  arguments.end();
  return unit.objects().get(id).format() + '\n';
}

void setObject(Unit& unit, Arguments& arguments) {
  const std::uint16_t id = parseObjectId(arguments.next("object id"));
  const std::string value = arguments.next("value");
  arguments.end();
  unit.objects().set(id, value);
}

void addObjects(Unit& unit, Arguments& arguments) {
  const std::vector<DeviceObject> objects = parseObjectLine(arguments.rest());
  if (objects.empty()) throw InputError("missing line of an object file");
  unit.objects().add(objects);
}

void deleteObject(Unit& unit, Arguments& arguments) {
  const std::uint16_t id = parseObjectId(arguments.next("object id"));
  arguments.end();
  unit.objects().remove(id);
}

void reply(Unit& unit, Arguments& arguments) {
  if (arguments.empty()) throw InputError("missing bytes: reply HEX");
  unit.sendReply(parseHex(arguments.rest()));
}

void removeQueue(Unit& unit, Arguments& arguments) {
  const std::string name = arguments.next("queue name");
  arguments.end();
  unit.removeQueue(name);
}

void sync(Unit& unit, Arguments& arguments) {
  arguments.end();
  unit.recorder().flush();
}

void quit(Unit& /*unit*/, Arguments& arguments) {
  arguments.end();
  kill(getpid(), SIGTERM);
}

/// A command without an answer.
struct Action {
  std::string_view name;
  void (*run)(Unit& unit, Arguments& arguments);
};

constexpr std::array kActions = {
    Action{"set", setObject},       Action{"add", addObjects},
    Action{"delete", deleteObject}, Action{"post", postRaw},
    Action{"reply", reply},         Action{"fault", planFault},
    Action{"sync", sync},           Action{"remove-queue", removeQueue},
    Action{"quit", quit},
};

}  // namespace

std::string execute(Unit& unit, std::string_view line) {
  std::vector<std::string> words;
  for (const std::string& word : splitWords(line)) words.push_back(textArgument(word));
  Arguments arguments(std::move(words));

  const std::string name = arguments.next("command");
  if (name == "get") return getObject(unit, arguments);
  if (name == "stats") return statistics(unit, arguments);
  for (const Action& action : kActions) {
    if (action.name == name) {
      action.run(unit, arguments);
      return {};
    }
  }
  for (const EventCommand& command : kEventCommands) {
    if (command.name == name) {
      postEvent(unit, command, arguments);
      return {};
    }
  }
  throw InputError("unknown command '" + name + "'");
}

}  // namespace norva::dasunit
