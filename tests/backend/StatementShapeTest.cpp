// Lifting the literals out of a statement: what becomes a parameter, of which
// type, and what stays in the text.
#include "StatementShape.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

using velm::StatementShape;

namespace {

const unsigned U = StatementShape::UNTYPED;
const unsigned I4 = StatementShape::INT4;
const unsigned I8 = StatementShape::INT8;

struct Lifted {
    const char* sql;
    const char* text;
    std::vector<std::string> values;
    std::vector<unsigned> types;
};

void PrintTo(const Lifted& lifted, std::ostream* out) {
    *out << lifted.sql;
}

class StatementShapes : public testing::TestWithParam<Lifted> {};

TEST_P(StatementShapes, LiftsTheLiterals) {
    StatementShape shape;
    ASSERT_TRUE(StatementShape::of(GetParam().sql, true, shape)) << GetParam().sql;
    EXPECT_EQ(GetParam().text, shape.text);
    EXPECT_EQ(GetParam().values, shape.values);
    EXPECT_EQ(GetParam().types, shape.types);
}

INSTANTIATE_TEST_SUITE_P(
    Candidates, StatementShapes,
    testing::Values(
        Lifted{"SELECT * FROM t WHERE a = 'x' AND b = 42; ", "SELECT * FROM t WHERE a = $1 AND b = $2", {"x", "42"}, {U, I4}},
        Lifted{"select 1", "select $1", {"1"}, {I4}},
        Lifted{"UPDATE t SET n = 'O''Brien', s = '' WHERE id = 3000000000", "UPDATE t SET n = $1, s = $2 WHERE id = $3",
               {"O'Brien", "", "3000000000"}, {U, U, I8}},
        Lifted{"INSERT INTO t (a) VALUES ('back\\slash')", "INSERT INTO t (a) VALUES ($1)", {"back\\slash"}, {U}},
        // Decimals, prefixed strings, dollar quotes and identifiers keep their text.
        Lifted{"SELECT 1.5, .5, 2e-3, E'\\'x', B'101', U&'d\\0061', $q$it's$q$, t1.c2, \"col'9\" FROM t1 WHERE k = 7",
               "SELECT 1.5, .5, 2e-3, E'\\'x', B'101', U&'d\\0061', $q$it's$q$, t1.c2, \"col'9\" FROM t1 WHERE k = $1",
               {"7"}, {I4}},
        Lifted{"SELECT -- it's 5\n a /* nested /* 'x' */ 6 */ FROM t WHERE b = -8", "SELECT -- it's 5\n a /* nested /* 'x' */ 6 */ FROM t WHERE b = -$1",
               {"8"}, {I4}},
        Lifted{"SELECT 5and FROM t WHERE b = 'y'", "SELECT 5and FROM t WHERE b = $1", {"y"}, {U}},
        Lifted{"SELECT 99999999999999999999, 'a' FROM t", "SELECT 99999999999999999999, $1 FROM t", {"a"}, {U}},
        // Column positions of ORDER BY and GROUP BY are not values.
        Lifted{"SELECT a, count(*) FROM t WHERE b = 2 GROUP BY 1 ORDER BY 2 DESC, coalesce(a, 0) LIMIT 10",
               "SELECT a, count(*) FROM t WHERE b = $1 GROUP BY 1 ORDER BY 2 DESC, coalesce(a, 0) LIMIT $2", {"2", "10"}, {I4, I4}},
        Lifted{"SELECT (SELECT x FROM u ORDER BY 1) FROM t WHERE y = 3", "SELECT (SELECT x FROM u ORDER BY 1) FROM t WHERE y = $1",
               {"3"}, {I4}},
        Lifted{"WITH s AS (SELECT 1) SELECT * FROM s", "WITH s AS (SELECT $1) SELECT * FROM s", {"1"}, {I4}}));

class NotCandidates : public testing::TestWithParam<const char*> {};

TEST_P(NotCandidates, RunAsWritten) {
    StatementShape shape;
    EXPECT_FALSE(StatementShape::of(GetParam(), true, shape)) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(
    Statements, NotCandidates,
    testing::Values("BEGIN TRANSACTION; UPDATE t SET a = 1; COMMIT;", "UPDATE t SET a = 1; SELECT 2",
                    "ROLLBACK", "COMMIT", "SAVEPOINT s1", "LOCK TABLE t", "SET search_path = 'x'",
                    "CREATE TABLE t (c varchar(20) DEFAULT 'x')", "SELECT now() FROM t", "SELECT a FROM t ORDER BY 1",
                    "SELECT $1", "SELECT 'unterminated", "SELECT 1 /* open", "SELECT $tag$ open", "", "   ;  "));

TEST(StatementShape, BackslashesAreNotLiftedWhenStringsAreNotStandard) {
    StatementShape shape;
    EXPECT_FALSE(StatementShape::of("SELECT * FROM t WHERE a = 'x\\'y'", false, shape));
    ASSERT_TRUE(StatementShape::of("SELECT * FROM t WHERE a = 'plain'", false, shape));
    EXPECT_EQ(std::vector<std::string>{"plain"}, shape.values);
    EXPECT_FALSE(StatementShape::of(nullptr, true, shape));
}

} // namespace
