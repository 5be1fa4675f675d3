#include "TableIterator.h"

#include <cstdlib>

#include "TableHandler.h"
#include "TestSupport.h"

namespace norva::test {
namespace {

using Indexes = std::vector<std::int32_t>;

class Rows : public TableHandler {
 public:
  explicit Rows(TableClassState& state) : TableHandler(state, nullptr) {}
};

class TableIteratorTest : public testing::Test {
 protected:
  /// Walks as the library does.
  Indexes walk() {
    netsnmp_iterator_info* info = makeRowIterator(state);
    void *loop = nullptr, *data = nullptr;
    netsnmp_variable_list index{};
    snmp_set_var_typed_integer(&index, ASN_INTEGER, 0);
    Indexes found;
    auto* row = info->get_first_data_point(&loop, &data, &index, info);
    for (; row != nullptr; row = info->get_next_data_point(&loop, &data, &index, info)) {
      found.push_back(static_cast<std::int32_t>(*row->val.integer));
    }
    info->free_loop_context_at_end(loop, info);
    std::free(info);
    snmp_reset_var_buffers(&index);
    return found;
  }

  TableClassState state{TableTraits{"rows", "Rows", false}};
  Rows rows{state};
};

TEST_F(TableIteratorTest, RowsWalkInOrderWithoutDoubles) {
  EXPECT_EQ(walk(), Indexes{});
  for (const int index : {5, 3, 5, 9, 1}) rows.addIndex(index);
  EXPECT_EQ(walk(), (Indexes{1, 3, 5, 9}));
  for (const int index : {7, 1, 5}) rows.removeIndex(index);  // there is no 7
  EXPECT_EQ(walk(), (Indexes{3, 9}));
  rows.removeIndex(9);
  EXPECT_EQ(walk(), Indexes{3});
  rows.clearIndexes();
  EXPECT_EQ(walk(), Indexes{});
}

}  // namespace
}  // namespace norva::test
