// The control commands: one line in, the lines of the answer out. Stateless beside the unit; any
// thread.

#ifndef NORVA_DASUNIT_COMMANDS_H_
#define NORVA_DASUNIT_COMMANDS_H_

#include <string>
#include <string_view>

#include "Unit.h"

namespace norva::dasunit {

/// One line per command, for the program's help.
extern const char* const kCommandHelp;

/// Carries out one command and returns its answer: no line, or lines that each end in '\n'. Throws
/// InputError for a command that is wrong or cannot be carried out.
std::string execute(Unit& unit, std::string_view line);

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_COMMANDS_H_
