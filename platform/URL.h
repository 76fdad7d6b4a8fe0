// URL: a database or service URL split into its parts.
#ifndef OSK_URL_H
#define OSK_URL_H

#include <string>

namespace osk {

// A URL of the form scheme://[user[:password]@]host[:port][/path], such as
// postgresql://db.example.com:5432/velm. The host may be empty (the client's
// default) or an IPv6 address in brackets. Host and path are given with their
// %XX escapes decoded, so postgresql://%2Frun%2Fvelm:5432/velm names the
// socket directory /run/velm as libpq's URIs do. The path is given without its
// leading slash, so it names a database directly. A text without "scheme://"
// (a plain database name, say) is not a valid URL.
class URL {
public:
    explicit URL(const std::string& text);

    bool isValid() const { return m_valid; }
    const std::string& getProtocol() const { return m_protocol; }
    const std::string& getHost() const { return m_host; }
    const std::string& getPath() const { return m_path; }
    // 0 when the URL names no port.
    int getPort() const { return m_port; }

private:
    bool parse(const std::string& text);

    bool m_valid = false;
    std::string m_protocol;
    std::string m_host;
    std::string m_path;
    int m_port = 0;
};

} // namespace osk

#endif
