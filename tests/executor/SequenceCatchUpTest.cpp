// Rows inserted with identifiers of their own move the identifier sequence
// past them, so rows that take the default never collide with them.
#include "TestServer.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
#include <string>

using velmtest::TestDatabase;

namespace {

struct Table {
    const char* name;
    const char* id;
    // A row with identifier {id}: the other columns and their values.
    const char* columns;
    const char* values;
    // Rows the table's rows point at.
    const char* setup;
};

const Table TABLES[] = {
    {"contact_set", "csid", "ordering", "'cycle'", ""},
    {"public_address", "public_address_id", "handle, sip_domain, csid, primary_handle", "'h{id}', 'example.com', 1, false",
     "INSERT INTO contact_set (csid) VALUES (1)"},
    {"contact", "contact_id", "csid, address", "1, 'sip:c{id}@10.0.0.1'", "INSERT INTO contact_set (csid) VALUES (1)"},
};

void PrintTo(const Table& table, std::ostream* out) {
    *out << table.name;
}

std::string tableName(const testing::TestParamInfo<Table>& info) {
    return info.param.name;
}

std::string withId(std::string sql, int id) {
    for (std::string::size_type at; (at = sql.find("{id}")) != std::string::npos;)
        sql.replace(at, 4, std::to_string(id));
    return sql;
}

class SequenceCatchUp : public testing::TestWithParam<Table> {
protected:
    void SetUp() override {
        if (*GetParam().setup)
            db.admin().exec(GetParam().setup);
    }

    // One statement inserting rows with these identifiers, in this order.
    void explicitRows(std::initializer_list<int> ids) {
        std::string sql = "INSERT INTO " + std::string(GetParam().name) + " (" + GetParam().id + ", " +
                          GetParam().columns + ") VALUES ";
        const char* separator = "";
        for (int id : ids) {
            sql += separator + ("(" + std::to_string(id) + ", " + withId(GetParam().values, id) + ")");
            separator = ", ";
        }
        db.admin().exec(sql);
    }

    // The identifier that a row taking the default gets; `tag` keeps unique
    // columns apart.
    int defaultRow(int tag) {
        return std::stoi(db.admin().value("INSERT INTO " + std::string(GetParam().name) + " (" + GetParam().columns +
                                          ") VALUES (" + withId(GetParam().values, tag) + ") RETURNING " +
                                          GetParam().id));
    }

    void setSequence(const std::string& value, bool called) {
        db.admin().exec("SELECT setval(pg_get_serial_sequence('" + std::string(GetParam().name) + "', '" +
                        GetParam().id + "'), " + value + ", " + (called ? "true" : "false") + ")");
    }

    TestDatabase db;
};

} // namespace

TEST_P(SequenceCatchUp, DefaultsContinueAboveTheHighestExplicitIdentifier) {
    explicitRows({40, 70, 55});
    EXPECT_EQ(71, defaultRow(9001));
    // An explicit identifier below the sequence leaves it where it is.
    explicitRows({10});
    EXPECT_EQ(72, defaultRow(9002));
    explicitRows({73});
    EXPECT_EQ(74, defaultRow(9003));
    // An insert of no rows changes nothing.
    db.admin().exec("INSERT INTO " + std::string(GetParam().name) + " SELECT * FROM " + GetParam().name +
                    " WHERE false");
    EXPECT_EQ(75, defaultRow(9004));
}

TEST_P(SequenceCatchUp, UnusedSequenceSkipsTheValueThatARowTook) {
    explicitRows({1});
    EXPECT_EQ(2, defaultRow(9001));
}

TEST_P(SequenceCatchUp, SequenceSetAheadIsNeverMovedBack) {
    // Set ahead and not yet used: the next default is 1000.
    setSequence("1000", false);
    explicitRows({5});
    EXPECT_EQ(1000, defaultRow(9001));
    setSequence("2000", false);
    explicitRows({2000});
    EXPECT_EQ(2001, defaultRow(9002));
}

INSTANTIATE_TEST_SUITE_P(IdentifiedTables, SequenceCatchUp, testing::ValuesIn(TABLES), tableName);
