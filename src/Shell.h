// Commands run through the shell. Their standard output goes nowhere, so that a program left behind
// in the background does not keep the agent's open. Any thread.

#ifndef NORVA_SHELL_H_
#define NORVA_SHELL_H_

#include <chrono>
#include <string>

namespace norva {

/// Runs `command` to its end. No failure is reported: it shows in what the command was to do.
void runInShell(const std::string& command);

/// The same, waiting no longer than `limit`; the command goes on if it is not done by then.
void runInShell(const std::string& command, std::chrono::milliseconds limit);

}  // namespace norva

#endif  // NORVA_SHELL_H_
