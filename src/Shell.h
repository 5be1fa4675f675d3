// Commands run through the shell. Functions only, any thread. The standard output of a command is
// discarded, so that a program it leaves running does not keep the agent's open.

#ifndef NORVA_SHELL_H_
#define NORVA_SHELL_H_

#include <chrono>
#include <string>

namespace norva {

/// Runs `command` and returns once it has ended. Its messages on standard error are passed on
/// without waiting for their reader. Returns nothing: whether it worked shows in its effect.
void runInShell(const std::string& command);

/// Runs a command that ends in " &". The program left in the background writes to the agent's own
/// standard error.
void launchInShell(const std::string& command);

/// Runs `command` and returns once it has ended or `limit` is over; then it runs on. Its messages
/// on standard error are discarded.
void runInShell(const std::string& command, std::chrono::milliseconds limit);

}  // namespace norva

#endif  // NORVA_SHELL_H_
