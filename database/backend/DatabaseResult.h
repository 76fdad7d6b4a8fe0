// DatabaseResult: the status and failure message of one database command.
#ifndef VELM_DATABASERESULT_H
#define VELM_DATABASERESULT_H

#include <string>

namespace velm {

// The outcome of one database command: a status and, on failure, a message.
class DatabaseResult {
public:
    enum status { OKAY = 0, CONNECTION_ERROR = 1, QUERY_ERROR = 2, NOTFOUND = 3, BADPARAM = 5 };

    DatabaseResult() : m_status(OKAY) {}
    DatabaseResult(const DatabaseResult&) = default;
    DatabaseResult& operator=(const DatabaseResult&) = default;

    bool okay() const { return m_status == OKAY; }
    bool notFound() const { return m_status == NOTFOUND; }
    bool connectionError() const { return m_status == CONNECTION_ERROR; }
    bool queryError() const { return m_status == QUERY_ERROR; }
    bool badParameter() const { return m_status == BADPARAM; }
    // A failure of the database itself, as opposed to an answer it gave.
    bool fatalError() const { return m_status == CONNECTION_ERROR || m_status == QUERY_ERROR; }

    // The setters change the status only; the message stays.
    void setOkay() { m_status = OKAY; }
    void setConnectionError() { m_status = CONNECTION_ERROR; }
    void setQueryError() { m_status = QUERY_ERROR; }
    void setNotFound() { m_status = NOTFOUND; }
    void setBadParameter() { m_status = BADPARAM; }

    void setErrorMessage(const std::string& message) { m_message = message; }
    // A null text leaves the message as it was.
    void setErrorMessage(const char* message) {
        if (message != nullptr)
            m_message = message;
    }
    std::string getErrorMessage() const { return m_message; }

    status m_status;
    std::string m_message;
};

} // namespace velm

#endif
