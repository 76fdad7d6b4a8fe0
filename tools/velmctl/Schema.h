// SchemaFile and DatabaseSchema: the schema velm.sql defines, and the one a database holds.
#ifndef VELMCTL_SCHEMA_H
#define VELMCTL_SCHEMA_H

#include "Session.h"
#include "Status.h"

#include <string>
#include <vector>

namespace velmctl {

// velm.sql: its path, its text and the version its velm_schema_version row
// gives.
struct SchemaFile {
    std::string path;
    std::string text;
    int version = 0;

    // findSchema()'s file, read.
    Outcome read();
};

// What a database holds: no schema, a schema without a version (from before
// velm_schema_version), or a version.
struct DatabaseSchema {
    static const int NONE = -1;
    static const int UNVERSIONED = 0;
    int version = NONE;

    Outcome read(Session& session);
    std::string text() const;
};

// Brings the database's schema to `file`: loads the file into a scratch
// schema, adds what the database lacks (sequences, tables, columns,
// constraints, indexes, views, triggers) and replaces changed functions and
// views, then records the file's version; one transaction. Nothing is dropped
// or altered: `kept` lists the differences left as they are (a column of
// another type). `applied` names what was done.
Outcome upgradeSchema(Session& session, const SchemaFile& file, std::vector<std::string>& applied,
                      std::vector<std::string>& kept);

} // namespace velmctl

#endif
