// What the benchmark's programs and its mapping database agree on: which device object stands
// behind which SNMP object, and what it holds. No unit and no mapping of the field looks like this.

#ifndef NORVA_BENCH_OBJECTS_H_
#define NORVA_BENCH_OBJECTS_H_

#include <cstdint>

namespace norva::bench {

// Scalars are ROOT.1.1.1.n.0, cells ROOT.10.1.1.column.row.0.
constexpr unsigned kScalars = 40;
constexpr unsigned kFirstColumn = 2;
constexpr unsigned kColumns = 8;
constexpr unsigned kRows = 32;

/// Objects with this bit are texts of 20 bytes, all others 4-byte integers.
constexpr std::uint16_t kText = 0x4000;
constexpr char kTextValue[] = "Antenna 12";

/// Every fourth one is a text.
constexpr std::uint16_t scalarObject(unsigned n) {
  return static_cast<std::uint16_t>(0x1000 + n + (n % 4 == 0 ? kText : 0));
}
constexpr std::uint16_t cellObject(unsigned column, unsigned row) {
  return static_cast<std::uint16_t>(0x2000 + column * 0x100 + row + (column % 4 == 0 ? kText : 0));
}
constexpr bool isText(std::uint16_t object) {
  return (object & kText) != 0;
}

/// An integer object holds its own id until it is written. These two are written, none else.
constexpr unsigned kWrittenScalar = kScalars - 1;
constexpr unsigned kWrittenColumn = 3;
constexpr unsigned kWrittenRow = 7;

}  // namespace norva::bench

#endif  // NORVA_BENCH_OBJECTS_H_
