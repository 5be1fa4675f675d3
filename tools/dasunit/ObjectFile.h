// The object file: the unit's objects as readable text, one object or one range of objects a line.
// Its format is described in dasunit(1).

#ifndef NORVA_DASUNIT_OBJECT_FILE_H_
#define NORVA_DASUNIT_OBJECT_FILE_H_

#include <istream>
#include <string>
#include <string_view>
#include <vector>

#include "DeviceObject.h"

namespace norva::dasunit {

/// The objects that one line defines, in ascending order of their ids; none for an empty line or a
/// comment. Throws InputError.
std::vector<DeviceObject> parseObjectLine(std::string_view line);

/// Every object of a file. Throws InputError whose text begins with `name` and the line number,
/// also for an object id that an earlier line has.
std::vector<DeviceObject> parseObjects(std::istream& input, const std::string& name);

/// As parseObjects, of the file `path`.
std::vector<DeviceObject> readObjectFile(const std::string& path);

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_OBJECT_FILE_H_
