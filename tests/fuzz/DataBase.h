// A mapping database in memory. It stands in for the calls of SQLite that the agent and norvamap
// make, in the whole program; the agent's adapter and norvamap's reader above them are the real
// ones.
//
// One thread.

#ifndef NORVA_TESTS_FUZZ_DATA_BASE_H_
#define NORVA_TESTS_FUZZ_DATA_BASE_H_

#include <string>
#include <vector>

namespace norva::fuzz {

struct DataBase {
  struct Table {
    bool exists = true;
    bool breaks = false;  ///< reading fails behind the last row
    int columns = 13;
    /// The values of each row between tabs, "~" for NULL. Those left out are empty.
    std::vector<std::string> rows;
  };
  Table scalars, cells;

  /// What every file holds.
  static DataBase& get();
  /// Of a file that is there.
  static constexpr char kPath[] = "/dev/null";
};

/// A row of the scalars' table.
std::string scalarRow(unsigned objId, unsigned suffix, unsigned asnType, unsigned covMethod,
                      const std::string& name = "object");

}  // namespace norva::fuzz

#endif  // NORVA_TESTS_FUZZ_DATA_BASE_H_
