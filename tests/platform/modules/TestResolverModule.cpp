// A resolver module for the tests: its answer depends on the user part of the request URI.
#include "ContactResolverModule.h"

#include <cstdio>
#include <cstring>

extern "C" int velm_resolve_contacts(const char* request_uri, velm_resolver_add_contact add_contact, void* list,
                                     char* error, size_t error_size) {
    auto startsWith = [request_uri](const char* prefix) { return std::strncmp(request_uri, prefix, std::strlen(prefix)) == 0; };
    if (startsWith("sip:two@")) {
        add_contact(list, "sip:first@192.0.2.1:5060");
        add_contact(list, "sip:second@192.0.2.2;transport=tcp");
    }
    if (startsWith("sip:two@") || startsWith("sip:none@"))
        return VELM_RESOLVER_SUCCESS;
    if (startsWith("sip:unknown@"))
        return VELM_RESOLVER_NOT_FOUND;
    if (startsWith("sip:fail@"))
        std::snprintf(error, error_size, "routing service unreachable for %s", request_uri);
    return startsWith("sip:fail@") ? VELM_RESOLVER_ERROR : startsWith("sip:odd@") ? 7 : VELM_RESOLVER_NO_ACTION;
}
