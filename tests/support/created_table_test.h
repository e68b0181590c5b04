// A test fixture for the tests of one table class.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "support/test_environment.h"

namespace alertdb_test {

// A test with `Table` made afresh in its data directory: made once the
// directory is set, as the path is fixed at construction, and closed first.
template <class Table>
class CreatedTableTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    table = std::make_unique<Table>();
    ASSERT_EQ(table->DBCreate(), 0u);
  }
  void TearDown() override {
    table.reset();
    IsolatedTest::TearDown();
  }

  std::unique_ptr<Table> table;
};

}  // namespace alertdb_test
