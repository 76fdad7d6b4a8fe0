// Rows inserted with identifiers of their own move the identifier sequence past them, so rows that take the
// default never collide with them.
#include "TestServer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

// A table, its identifier, the other columns of a row and their values for a
// row tagged {id}, and the rows its rows point at.
struct Table {
    const char* name;
    const char* id;
    const char* columns;
    const char* values;
    const char* setup;
};

const Table TABLES[] = {
    {"contact_set", "csid", "ordering", "'cycle'", "SELECT 1"},
    {"public_address", "public_address_id", "handle, sip_domain, csid, primary_handle",
     "'h{id}', 'example.com', 1, false", "INSERT INTO contact_set (csid) VALUES (1)"},
    {"contact", "contact_id", "csid, address", "1, 'sip:c{id}@10.0.0.1'", "INSERT INTO contact_set (csid) VALUES (1)"},
};

class SequenceCatchUp : public testing::TestWithParam<Table> {};

} // namespace

TEST_P(SequenceCatchUp, DefaultsContinueAboveTheHighestIdentifierButNeverMoveBack) {
    const Table& table = GetParam();
    auto row = [&table](int id) {
        std::string values = table.values;
        for (std::string::size_type at; (at = values.find("{id}")) != std::string::npos;)
            values.replace(at, 4, std::to_string(id));
        return "(" + values + ")";
    };
    // Where the sequence was set ahead to (not yet used), the identifiers
    // inserted in one statement, and the one a row taking the default gets.
    const std::tuple<int, std::vector<int>, int> steps[] = {
        {0, {1}, 2},  // an unused sequence skips the value a row took
        {0, {40, 70, 55}, 71}, {0, {10}, 72},  // below the sequence: it stays where it is
        {0, {73}, 74}, {0, {}, 75},  // an insert of no rows changes nothing
        {1000, {5}, 1000}, {2000, {2000}, 2001},
    };
    velmtest::TestDatabase db;
    db.admin().exec(table.setup);
    const std::string insert = std::string("INSERT INTO ") + table.name + " (" + table.id + ", " + table.columns + ") ";
    int tag = 9000;
    for (const auto& step : steps) {
        if (std::get<0>(step) != 0)
            db.admin().exec(std::string("SELECT setval(pg_get_serial_sequence('") + table.name + "', '" + table.id +
                            "'), " + std::to_string(std::get<0>(step)) + ", false)");
        std::string rows;
        for (int id : std::get<1>(step))
            rows += (rows.empty() ? "VALUES (" : ", (") + std::to_string(id) + ", " + row(id).substr(1);
        db.admin().exec(rows.empty() ? insert + "SELECT " + table.id + ", " + table.columns + " FROM " + table.name +
                                           " WHERE false"
                                     : insert + rows);
        EXPECT_EQ(std::to_string(std::get<2>(step)),
                  db.admin().value(std::string("INSERT INTO ") + table.name + " (" + table.columns + ") VALUES " +
                                   row(++tag) + " RETURNING " + table.id));
    }
}

INSTANTIATE_TEST_SUITE_P(IdentifiedTables, SequenceCatchUp, testing::ValuesIn(TABLES),
                         [](const testing::TestParamInfo<Table>& info) { return std::string(info.param.name); });
