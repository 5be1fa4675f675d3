#include "Shell.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace norva {

namespace {

constexpr std::chrono::milliseconds kLook{10};

/// Process id of a shell that runs `command`; -1 when there is none.
pid_t startShell(const std::string& command) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  std::string shell = "sh";
  std::string option = "-c";
  std::string text = command;
  char* const arguments[] = {shell.data(), option.data(), text.data(), nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, arguments, environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace

void runInShell(const std::string& command) {
  const pid_t pid = startShell(command);
  if (pid == -1) return;
  while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
  }
}

void runInShell(const std::string& command, std::chrono::milliseconds limit) {
  const pid_t pid = startShell(command);
  if (pid == -1) return;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (waitpid(pid, nullptr, WNOHANG) == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kLook);
  }
}

}  // namespace norva
