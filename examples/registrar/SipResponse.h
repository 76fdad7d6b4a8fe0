// SipResponse: a final response to a request.
#ifndef VELM_REGISTRAR_SIPRESPONSE_H
#define VELM_REGISTRAR_SIPRESPONSE_H

#include <string>
#include <vector>

namespace registrar {

class SipRequest;

// A final response to a request: status line, the request's Via, From, To,
// Call-ID and CSeq, then the headers added here, and no body.
class SipResponse {
public:
    // 400 Bad Request with a Warning saying why.
    static SipResponse badRequest(const std::string& why);

    SipResponse() = default;
    SipResponse(int code, const std::string& reason) : m_code(code), m_reason(reason) {}

    int code() const { return m_code; }
    const std::string& reason() const { return m_reason; }
    // `name: value`, in the order added.
    void addHeader(const std::string& name, const std::string& value);
    // A Warning from this server (code 399) whose text is `text` made safe
    // for a quoted string.
    void addWarning(const std::string& text);
    const std::vector<std::string>& headers() const { return m_headers; }

    std::string render(const SipRequest& request) const;

private:
    int m_code = 500;
    std::string m_reason = "Server Internal Error";
    std::vector<std::string> m_headers;
};

} // namespace registrar

#endif
