// Reading the first diagnostic record of an ODBC handle.
#include "OdbcDiagnostic.h"

#include <sqlext.h>

namespace velm {

bool OdbcDiagnostic::read(SQLSMALLINT handleType, SQLHANDLE handle) {
    if (handle == SQL_NULL_HANDLE)
        return false;
    SQLCHAR state[SQL_SQLSTATE_SIZE + 1] = {};
    SQLINTEGER nativeError = 0;
    SQLCHAR text[2048] = {};
    SQLSMALLINT length = 0;
    // A message longer than the buffer arrives truncated, with info.
    if (!SQL_SUCCEEDED(SQLGetDiagRec(handleType, handle, 1, state, &nativeError, text, sizeof text, &length)))
        return false;
    sqlState = reinterpret_cast<const char*>(state);
    message = reinterpret_cast<const char*>(text);
    return true;
}

} // namespace velm
