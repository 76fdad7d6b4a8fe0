// PreparedStatements: the shapes one libpq session has prepared.
#ifndef VELM_PREPAREDSTATEMENTS_H
#define VELM_PREPAREDSTATEMENTS_H

#include <string>
#include <unordered_map>

typedef struct pg_conn PGconn;
typedef struct pg_result PGresult;

namespace velm {

struct StatementShape;

// The statements one libpq session has prepared, by shape. A statement whose
// literals can be lifted runs as the prepared form of its shape with its
// values, so the server parses and plans the shape once per session rather
// than every text anew. Everything else runs as written: several statements,
// transaction control, statements without literals, and shapes the server
// refused to prepare (remembered, so they are not offered again).
class PreparedStatements {
public:
    // Runs `sql` like PQexec: null when no result came back at all.
    PGresult* exec(PGconn* conn, const char* sql);

    // The session is gone, and its prepared statements with it.
    void forget();

private:
    struct Entry {
        std::string name; // empty: the server refused the shape
    };
    using Shapes = std::unordered_map<std::string, Entry>;

    // Learns the shape; end() when nothing could be learnt (a broken
    // session, or too many shapes already).
    Shapes::iterator prepare(PGconn* conn, const StatementShape& shape, bool inTransaction);

    Shapes m_shapes;
    unsigned long m_named = 0;
};

} // namespace velm

#endif
