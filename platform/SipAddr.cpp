// Comparing Contact header values by the URI equivalence rules of SIP.
#include "SipAddr.h"

#include "Uri.h"

#include <arpa/inet.h>
#include <osipparser2/osip_port.h>
#include <osipparser2/osip_headers.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <vector>

namespace velm {
namespace {

struct ContactFree {
    void operator()(osip_contact_t* contact) const { osip_contact_free(contact); }
};
using OsipContact = std::unique_ptr<osip_contact_t, ContactFree>;

bool same(const char* a, const char* b) {
    return (a == nullptr && b == nullptr) || (a != nullptr && b != nullptr && std::strcmp(a, b) == 0);
}

bool sameIgnoringCase(const char* a, const char* b) {
    return (a == nullptr && b == nullptr) || (a != nullptr && b != nullptr && strcasecmp(a, b) == 0);
}

const char* text(const char* value) {
    return value != nullptr ? value : "";
}

std::vector<osip_uri_param_t*> items(osip_list_t* list) {
    std::vector<osip_uri_param_t*> all;
    osip_list_iterator_t it;
    for (auto* item = static_cast<osip_uri_param_t*>(osip_list_get_first(list, &it)); item != nullptr;
         item = static_cast<osip_uri_param_t*>(osip_list_get_next(&it)))
        all.push_back(item);
    return all;
}

osip_uri_param_t* find(osip_list_t* list, const char* name) {
    for (osip_uri_param_t* item : items(list))
        if (strcasecmp(text(item->gname), name) == 0)
            return item;
    return nullptr;
}

// Every occurrence of `name` (in any letter case), in order.
std::vector<osip_uri_param_t*> every(osip_list_t* list, const char* name) {
    std::vector<osip_uri_param_t*> found;
    for (osip_uri_param_t* item : items(list))
        if (strcasecmp(text(item->gname), name) == 0)
            found.push_back(item);
    return found;
}

// The headers as written: "name=value", or the name alone without a value.
std::vector<std::string> written(osip_list_t* headers) {
    std::vector<std::string> all;
    for (osip_uri_param_t* header : items(headers))
        all.push_back(text(header->gname) + (header->gvalue != nullptr ? std::string("=") + header->gvalue : ""));
    return all;
}

// The headers in a form that compares in any order: names in lower case
// (they end at the first '='), sorted.
std::vector<std::string> comparable(osip_list_t* headers) {
    std::vector<std::string> all = written(headers);
    for (std::string& header : all)
        std::transform(header.begin(), header.begin() + std::min(header.find('='), header.size()), header.begin(),
                       [](unsigned char c) { return std::tolower(c); });
    std::sort(all.begin(), all.end());
    return all;
}

std::string join(const std::vector<std::string>& parts, const char* separator) {
    std::string joined;
    for (const auto& part : parts)
        joined += (joined.empty() ? "" : separator) + part;
    return joined;
}

// One side of the comparison: the Contact value parsed, its URI checked.
class Contact {
public:
    explicit Contact(const std::string& value) {
        osip_contact_t* raw = nullptr;
        if (osip_contact_init(&raw) != 0) {
            m_error = "out of memory";
            return;
        }
        m_contact.reset(raw);
        if (osip_contact_parse(raw, value.c_str()) != 0 || raw->url == nullptr) {
            m_error = value == "*" ? "'*' names no single contact" : "not a Contact value: \"" + value + "\"";
            return;
        }
        char* uriText = nullptr;
        osip_uri_to_str(raw->url, &uriText);
        osk::Uri uri(uriText != nullptr ? uriText : "");
        osip_free(uriText);
        if (!uri.isValid())
            m_error = std::string("not a SIP address: ") + uri.errorMessage();
    }

    bool valid() const { return m_error.empty(); }
    const std::string& error() const { return m_error; }
    osip_uri_t& uri() const { return *m_contact->url; }
    const char* displayName() const { return m_contact->displayname; }
    osip_list_t* headerParameters() const { return &m_contact->gen_params; }

private:
    OsipContact m_contact;
    std::string m_error;
};

class Comparison {
public:
    Comparison(const Contact& a, const Contact& b) : m_a(a.uri()), m_b(b.uri()) {
        if (!same(a.displayName(), b.displayName()))
            m_notes.push_back("display name ignored");
        std::vector<std::string> names;
        for (osip_list_t* list : {a.headerParameters(), b.headerParameters()})
            for (osip_uri_param_t* item : items(list))
                if (std::find(names.begin(), names.end(), text(item->gname)) == names.end())
                    names.push_back(text(item->gname));
        note(!names.empty(), "header parameters ignored: " + join(names, ", "));
    }

    // Empty when the URIs are equivalent, else why not.
    std::string difference() {
        if (!sameIgnoringCase(m_a.scheme, m_b.scheme))
            return "schemes differ";
        note(!same(m_a.scheme, m_b.scheme), "scheme letter case");
        if (!same(m_a.username, m_b.username))
            return "users differ";
        if (!same(m_a.password, m_b.password))
            return "passwords differ";
        if (!sameHost())
            return "hosts differ";
        if (!same(m_a.port, m_b.port) && portNumber(m_a.port) != portNumber(m_b.port))
            return m_a.port == nullptr || m_b.port == nullptr ? "port given in one URI only" : "ports differ";
        note(!same(m_a.port, m_b.port), "port written differently");
        std::string parameters = parameterDifference();
        if (!parameters.empty())
            return parameters;
        return headerDifference();
    }

    std::string notes() const { return join(m_notes, "; "); }

private:
    void note(bool condition, const std::string& text) {
        if (condition)
            m_notes.push_back(text);
    }

    static long portNumber(const char* port) { return port != nullptr ? std::atol(port) : -1; }

    bool sameHost() {
        const char* a = text(m_a.host);
        const char* b = text(m_b.host);
        in6_addr first, second;
        if (inet_pton(AF_INET6, a, &first) == 1 && inet_pton(AF_INET6, b, &second) == 1) {
            note(std::strcmp(a, b) != 0, "IPv6 address written differently");
            return std::memcmp(&first, &second, sizeof first) == 0;
        }
        note(std::strcmp(a, b) != 0, "host letter case");
        return strcasecmp(a, b) == 0;
    }

    std::string parameterDifference() {
        static const char* const mustAgree[] = {"transport", "user", "ttl", "method", "maddr"};
        for (const char* name : mustAgree) {
            osip_uri_param_t* a = find(&m_a.url_params, name);
            osip_uri_param_t* b = find(&m_b.url_params, name);
            if ((a == nullptr) != (b == nullptr))
                return std::string("parameter ") + name + " in one URI only";
        }
        // A parameter that a URI repeats agrees only when the other URI has
        // it as often, with the same values in the same order; one that the
        // other URI lacks altogether plays no part.
        bool caseOrOrder = false;
        std::vector<osip_uri_param_t*> mine = items(&m_a.url_params);
        std::vector<osip_uri_param_t*> theirs = items(&m_b.url_params);
        for (size_t i = 0; i < mine.size(); ++i) {
            const char* name = text(mine[i]->gname);
            if (find(&m_a.url_params, name) != mine[i])
                continue;
            std::vector<osip_uri_param_t*> ours = every(&m_a.url_params, name);
            std::vector<osip_uri_param_t*> other = every(&m_b.url_params, name);
            if (other.empty()) {
                m_notes.push_back(std::string("parameter in one URI only: ") + name);
                continue;
            }
            if (ours.size() != other.size())
                return std::string("parameter ") + name + " differs";
            for (size_t k = 0; k < ours.size(); ++k) {
                if (!sameIgnoringCase(ours[k]->gvalue, other[k]->gvalue))
                    return std::string("parameter ") + name + " differs";
                caseOrOrder = caseOrOrder || !same(ours[k]->gname, other[k]->gname) ||
                              !same(ours[k]->gvalue, other[k]->gvalue);
            }
            caseOrOrder = caseOrOrder || i >= theirs.size() || theirs[i] != other[0];
        }
        for (osip_uri_param_t* item : theirs)
            if (find(&m_a.url_params, text(item->gname)) == nullptr && find(&m_b.url_params, text(item->gname)) == item)
                m_notes.push_back(std::string("parameter in one URI only: ") + text(item->gname));
        note(caseOrOrder, "parameter letter case or order");
        return std::string();
    }

    // The headers agree as a whole, in any order: names without regard to
    // case, values exactly, a repeated header as often in both.
    std::string headerDifference() {
        if (comparable(&m_a.url_headers) != comparable(&m_b.url_headers))
            return "headers differ";
        note(written(&m_a.url_headers) != written(&m_b.url_headers), "header letter case or order");
        return std::string();
    }

    osip_uri_t& m_a;
    osip_uri_t& m_b;
    std::vector<std::string> m_notes;
};

} // namespace

bool SipAddr::addressMatches(const std::string& unregistering, const std::string& stored, std::string& detail) {
    detail.clear();
    Contact first(unregistering);
    // A phone refreshing or removing its binding usually sends the very
    // header it registered: the same text is the same address once it
    // parses, so it is parsed once.
    if (unregistering == stored) {
        if (!first.valid())
            detail = first.error();
        return first.valid();
    }
    Contact second(stored);
    if (!first.valid() || !second.valid()) {
        detail = first.valid() ? second.error() : first.error();
        return false;
    }
    Comparison comparison(first, second);
    std::string difference = comparison.difference();
    if (!difference.empty()) {
        detail = difference;
        return false;
    }
    if (unregistering != stored) {
        detail = comparison.notes();
        if (detail.empty())
            detail = "same address written differently";
    }
    return true;
}

} // namespace velm
