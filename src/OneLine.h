// What our own lines quote of somebody else: names, nodes, reasons. A pure function.

#ifndef NORVA_ONE_LINE_H_
#define NORVA_ONE_LINE_H_

#include <string>

namespace norva {

/// The text fit for a journal or a terminal, on one line: '?' for each control character, those
/// from 0x80 to 0x9F included, as UTF-8 and as single bytes; they can command a terminal too.
std::string oneLine(std::string text);

}  // namespace norva

#endif  // NORVA_ONE_LINE_H_
