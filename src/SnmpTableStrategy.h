// What start-up needs of a table: a set of row indexes and the registration of the table.
//
// The rows are a sorted list that the walk of the agent library follows node by node. Tables hold a
// few dozen rows, so insertion is linear and there is no index structure. No lock; the derived
// class guards the list.

#ifndef NORVA_SNMP_TABLE_STRATEGY_H_
#define NORVA_SNMP_TABLE_STRATEGY_H_

#include <cstdint>
#include <string>

namespace norva {

/// A row of a table, owned by its handler. The list ascends strictly by index.
struct RowNode {
  std::int32_t index;
  RowNode* next;
};

class SnmpTableStrategy {
 public:
  SnmpTableStrategy() = default;
  virtual ~SnmpTableStrategy();
  SnmpTableStrategy(const SnmpTableStrategy&) = delete;
  SnmpTableStrategy& operator=(const SnmpTableStrategy&) = delete;

  /// Adds a row; nothing happens when it is there already.
  virtual void addIndex(std::int32_t index) = 0;
  /// Removes a row; nothing happens when there is none.
  virtual void removeIndex(std::int32_t index) = 0;
  /// Removes every row.
  virtual void clearIndexes();
  /// Registers the table that stands below `ancestorNode`, a dotted OID suffix with a leading dot.
  /// Failures are printed and leave the table unregistered. `tableFlag` is stored, not interpreted.
  virtual void init_table(std::int32_t tableFlag, const std::string& ancestorNode) = 0;

 protected:
  void insertRow(std::int32_t index);
  void eraseRow(std::int32_t index);
  RowNode* rowList() const { return _rowList; }

 private:
  /// The link (the head or some node's next) at which the row `index` is, or would be inserted.
  RowNode** findLink(std::int32_t index);

  std::string _name;  // stays empty
  RowNode* _rowList = nullptr;
};

}  // namespace norva

#endif  // NORVA_SNMP_TABLE_STRATEGY_H_
