// Connects a command executor, writes one row and reads it back.
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    const char* database = argc > 1 ? argv[1] : "velm";
    const char* user = argc > 2 ? argv[2] : "velm";
    const char* password = std::getenv("VELM_DB_PASSWORD");

    velm::DatabaseCommandExecutor executor;
    if (!executor.connect(database, user, password != nullptr ? password : "")) {
        std::fprintf(stderr, "connect failed: %s\n", executor.getErrorMessage().c_str());
        return 3;
    }
    int inserted = 0;
    if (!executor.executeUpdate("INSERT INTO system_parameters (application, scope, name, value) "
                                "VALUES ('velm', 'system', 'server_name', 'example.velm.test')",
                                inserted)) {
        std::fprintf(stderr, "insert failed: %s\n", executor.getErrorMessage().c_str());
        return 3;
    }
    velm::QueryResultPtr rows;
    velm::DatabaseResult outcome =
        executor.execute("SELECT name, value FROM system_parameters WHERE name = 'server_name'", rows);
    if (!outcome.okay()) {
        std::fprintf(stderr, "select failed: %s\n", outcome.getErrorMessage().c_str());
        return 3;
    }
    std::printf("inserted %d row(s); read back:\n", inserted);
    for (int row = 0; row < rows.rows(); ++row)
        std::printf("  %s = %s\n", rows.getValue(row, 0), rows.getValue(row, 1));
    return 0;
}
