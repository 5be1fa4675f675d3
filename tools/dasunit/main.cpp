// dasunit: the simulated unit (run) and its control client (ctl).

#include <poll.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Commands.h"
#include "ControlSocket.h"
#include "ObjectFile.h"
#include "Unit.h"
#include "Version.h"

namespace {

using namespace norva::dasunit;

constexpr int kExitInput = 2;

struct Options {
  std::string objects;
  std::string control = "/tmp/dasunit.sock";
  std::string record;
  double wait = 0;
};

/// Blocks the signals that end the unit, in every thread to come, and returns a descriptor that is
/// readable once one arrives.
int terminationDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

int run(const Options& options) {
  const std::vector<DeviceObject> objects = readObjectFile(options.objects);
  const Descriptor termination(terminationDescriptor());
  Unit unit(objects, options.record);
  ControlServer control(options.control,
                        [&unit](std::string_view line) { return execute(unit, line); });
  unit.start();
  std::printf("dasunit: ready, %zu objects, control socket %s\n", objects.size(),
              options.control.c_str());
  std::fflush(stdout);

  pollfd events[] = {{termination.number(), POLLIN, 0}, {control.descriptor(), POLLIN, 0}};
  while (events[0].revents == 0) {
    if (poll(events, 2, -1) > 0 && events[1].revents != 0) control.accept();
  }
  unit.stop();
  return unit.failed() ? 1 : 0;
}

int sendToUnit(const Options& options, const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += encodeText(word) + ' ';
  const std::chrono::duration<double> patience(options.wait);
  const std::string answer = sendCommand(
      options.control, line, std::chrono::duration_cast<std::chrono::milliseconds>(patience));
  std::fputs(answer.c_str(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  // Not by the parser: for the subcommand it would prefer this to an option in front of it.
  if (const char* control = std::getenv("DASUNIT_CONTROL")) options.control = control;
  CLI::App app{
      "The simulated unit: plays the control process of a DAS unit on its message queues.\n"
      "Runs in the foreground until SIGTERM, SIGINT or the command 'quit'.",
      "dasunit"};
  app.set_version_flag("--version", std::string("dasunit ") + norva::kVersion);
  app.add_option("--objects", options.objects, "Object file: the unit's objects (required)")
      ->type_name("FILE");
  app.add_option("--record", options.record, "Record every frame in this file")->type_name("FILE");
  const auto addControl = [&options](CLI::App& to) {
    to.add_option("--control", options.control,
                  "Path of the control socket; without it that of DASUNIT_CONTROL")
        ->type_name("PATH")
        ->capture_default_str();
  };
  addControl(app);

  CLI::App* ctl = app.add_subcommand(
      "ctl", "Send one command to a running unit: dasunit ctl [OPTIONS] COMMAND...");
  addControl(*ctl);
  ctl->add_option("--wait", options.wait, "Seconds to wait for the unit to come up")
      ->check(CLI::Range(0.0, 3600.0))
      ->type_name("SECONDS")
      ->capture_default_str();
  ctl->prefix_command();
  ctl->footer(kCommandHelp);
  app.footer("See 'dasunit ctl --help' for the commands and dasunit(1) for the object file.");

  try {
    app.parse(argc, argv);
    if (ctl->parsed()) return sendToUnit(options, ctl->remaining());
    if (options.objects.empty()) throw InputError("--objects FILE is required, see --help");
    return run(options);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    std::fprintf(stderr, "dasunit: %s\n", error.what());
  } catch (const InputError& error) {
    std::fprintf(stderr, "dasunit: %s\n", error.what());
  }
  return kExitInput;
}
