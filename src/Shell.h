// Commands run through the shell. Their standard output goes nowhere, so that a program left behind
// in the background does not keep the agent's open. Any thread.

#ifndef NORVA_SHELL_H_
#define NORVA_SHELL_H_

#include <chrono>
#include <string>

namespace norva {

/// Runs `command` to its end; what it says on standard error is passed on without waiting for the
/// reader. No failure is reported: it shows in what the command was to do.
void runInShell(const std::string& command);

/// The same for a command that ends in " &": what it leaves behind has the agent's standard error.
void launchInShell(const std::string& command);

/// Runs `command`, waiting no longer than `limit`; it goes on if it is not done by then. What it
/// says is lost.
void runInShell(const std::string& command, std::chrono::milliseconds limit);

}  // namespace norva

#endif  // NORVA_SHELL_H_
