// Preparing statements by shape once per session and running them with their values.
#include "PreparedStatements.h"

#include "StatementShape.h"

#include <libpq-fe.h>

#include <cstring>
#include <vector>

namespace velm {

namespace {

// Beyond this many shapes a session prepares no more: statements built with
// ever new shapes would otherwise grow the server's memory without bound.
const size_t MAX_SHAPES = 512;

bool commandOk(PGresult* result) {
    bool ok = result != nullptr && PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    return ok;
}

bool standardStrings(PGconn* conn) {
    const char* setting = PQparameterStatus(conn, "standard_conforming_strings");
    return setting != nullptr && std::strcmp(setting, "on") == 0;
}

} // namespace

PGresult* PreparedStatements::exec(PGconn* conn, const char* sql) {
    // A failed transaction refuses everything until it is rolled back.
    const PGTransactionStatusType transaction = PQtransactionStatus(conn);
    StatementShape shape;
    if ((transaction != PQTRANS_IDLE && transaction != PQTRANS_INTRANS) ||
        !StatementShape::of(sql, standardStrings(conn), shape))
        return PQexec(conn, sql);
    Shapes::iterator entry = m_shapes.find(shape.text);
    if (entry == m_shapes.end())
        entry = prepare(conn, shape, transaction == PQTRANS_INTRANS);
    if (entry == m_shapes.end() || entry->second.name.empty())
        return PQexec(conn, sql);

    std::vector<const char*> values;
    values.reserve(shape.values.size());
    for (const std::string& value : shape.values)
        values.push_back(value.c_str());
    return PQexecPrepared(conn, entry->second.name.c_str(), static_cast<int>(values.size()), values.data(), nullptr,
                          nullptr, 0);
}

void PreparedStatements::forget() {
    m_shapes.clear();
}

PreparedStatements::Shapes::iterator PreparedStatements::prepare(PGconn* conn, const StatementShape& shape,
                                                                 bool inTransaction) {
    if (m_shapes.size() >= MAX_SHAPES)
        return m_shapes.end();
    // A refused prepare would abort the caller's transaction: inside one it
    // is tried under a savepoint.
    if (inTransaction && !commandOk(PQexec(conn, "SAVEPOINT velm_prepare")))
        return m_shapes.end();
    std::string name = "velm_" + std::to_string(++m_named);
    std::vector<Oid> types(shape.types.begin(), shape.types.end());
    PGresult* prepared =
        PQprepare(conn, name.c_str(), shape.text.c_str(), static_cast<int>(types.size()), types.data());
    const bool accepted = commandOk(prepared);
    if (inTransaction &&
        !commandOk(PQexec(conn, accepted ? "RELEASE SAVEPOINT velm_prepare"
                                         : "ROLLBACK TO SAVEPOINT velm_prepare; RELEASE SAVEPOINT velm_prepare")))
        return m_shapes.end();
    // A refusal from a session that broke meanwhile says nothing of the shape.
    if (!accepted && PQstatus(conn) != CONNECTION_OK)
        return m_shapes.end();
    return m_shapes.emplace(shape.text, Entry{accepted ? name : std::string()}).first;
}

} // namespace velm
