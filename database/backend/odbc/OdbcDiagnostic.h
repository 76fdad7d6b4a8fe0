// OdbcDiagnostic: the SQLSTATE and message of an ODBC handle's first diagnostic.
#ifndef VELM_ODBCDIAGNOSTIC_H
#define VELM_ODBCDIAGNOSTIC_H

#include <sqltypes.h>

#include <string>

namespace velm {

// The first diagnostic record of an ODBC handle.
struct OdbcDiagnostic {
    std::string sqlState;
    std::string message;

    // False (and nothing read) for a null handle or when the handle holds no
    // record.
    bool read(SQLSMALLINT handleType, SQLHANDLE handle);
};

} // namespace velm

#endif
