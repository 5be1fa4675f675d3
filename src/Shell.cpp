#include "Shell.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "Output.h"

namespace norva {

namespace {

constexpr std::chrono::milliseconds kLook{10};

/// Process id of a shell that runs `command`, its standard error being `errors` or, where that is
/// negative, the agent's; -1 when there is none.
pid_t startShell(const std::string& command, int errors) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (errors >= 0) posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  std::string shell = "sh";
  std::string option = "-c";
  std::string text = command;
  char* const arguments[] = {shell.data(), option.data(), text.data(), nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, arguments, environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

void waitForEnd(pid_t pid) {
  if (pid == -1) return;
  while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
  }
}

/// Copies what `fd` yields to standard error, until its end.
void passOn(int fd) {
  char text[512];
  for (ssize_t size; (size = read(fd, text, sizeof text)) > 0 || (size == -1 && errno == EINTR);) {
    if (size > 0) Output::standardError().write({text, static_cast<std::size_t>(size)});
  }
}

}  // namespace

void runInShell(const std::string& command) {
  int errors[2] = {-1, -1};
  if (pipe2(errors, O_CLOEXEC) != 0) errors[0] = -1;
  const pid_t pid = startShell(command, errors[1]);
  if (errors[0] >= 0) {
    close(errors[1]);
    if (pid != -1) passOn(errors[0]);
    close(errors[0]);
  }
  waitForEnd(pid);
}

void launchInShell(const std::string& command) {
  waitForEnd(startShell(command, -1));
}

void runInShell(const std::string& command, std::chrono::milliseconds limit) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const pid_t pid = startShell(command, nowhere);
  if (nowhere >= 0) close(nowhere);
  if (pid == -1) return;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (waitpid(pid, nullptr, WNOHANG) == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kLook);
  }
}

}  // namespace norva
