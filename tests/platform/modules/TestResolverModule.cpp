// A resolver module for the tests: its answer depends on the user part of the
// request URI.
#include "ContactResolverModule.h"

#include <cstdio>
#include <cstring>

extern "C" int velm_resolve_contacts(const char* request_uri, velm_resolver_add_contact add_contact, void* list,
                                     char* error, size_t error_size) {
    if (std::strncmp(request_uri, "sip:two@", 8) == 0) {
        add_contact(list, "sip:first@192.0.2.1:5060");
        add_contact(list, "sip:second@192.0.2.2;transport=tcp");
        return VELM_RESOLVER_SUCCESS;
    }
    if (std::strncmp(request_uri, "sip:none@", 9) == 0)
        return VELM_RESOLVER_SUCCESS;
    if (std::strncmp(request_uri, "sip:unknown@", 12) == 0)
        return VELM_RESOLVER_NOT_FOUND;
    if (std::strncmp(request_uri, "sip:fail@", 9) == 0) {
        std::snprintf(error, error_size, "routing service unreachable for %s", request_uri);
        return VELM_RESOLVER_ERROR;
    }
    if (std::strncmp(request_uri, "sip:odd@", 8) == 0)
        return 7;
    return VELM_RESOLVER_NO_ACTION;
}
