// What is read from the mapping database: rows and columns of text. For the thread that loads.

#ifndef NORVA_RESULT_TABLE_H_
#define NORVA_RESULT_TABLE_H_

#include <cstdlib>

#include "DataBaseAdapter.h"
#include "Output.h"

namespace norva {

/// A table read through an adapter, given back when the object goes.
class ResultTable {
 public:
  explicit ResultTable(DataBaseAdapter& adapter) : _adapter(adapter) {}
  ~ResultTable() { _adapter.freeTable(_result); }
  ResultTable(const ResultTable&) = delete;
  ResultTable& operator=(const ResultTable&) = delete;

  int getTable(const char* name) { return _adapter.getTable(name, &_result, &_rows, &_columns); }
  int query(const char* sql) { return _adapter.query(sql, &_result, &_rows, &_columns); }

  int rows() const { return _rows; }
  int columns() const { return _columns; }

  /// Text of a cell, null for NULL. Rows count from 1, columns from 0.
  const char* text(int row, int column) const { return _result[row * _columns + column]; }

  /// Number of a cell; its low bits where the field is narrower, 0 where it does not parse.
  template <typename Integer>
  Integer number(int row, int column, int base) const {
    return static_cast<Integer>(std::strtoull(text(row, column), nullptr, base));
  }
  /// True when the table has the columns the catalogue reads (an empty one has none at all);
  /// otherwise printed.
  bool hasColumns(const char* name, int wanted) const {
    if (_rows == 0 || _columns >= wanted) return true;
    Output::print("%s has %d columns, %d are needed\n", name, _columns, wanted);
    return false;
  }

  /// True when every column but `optional` is filled; otherwise the row is reported.
  bool isFilled(const char* name, int row, int wanted, int optional) const {
    for (int column = 0; column < wanted; ++column) {
      if (column == optional || text(row, column) != nullptr) continue;
      Output::print("%s row %d: column %d is NULL, row not used\n", name, row, column);
      return false;
    }
    return true;
  }

 private:
  DataBaseAdapter& _adapter;
  char** _result = nullptr;
  int _rows = 0;
  int _columns = 0;
};

}  // namespace norva

#endif  // NORVA_RESULT_TABLE_H_
