// The C interface that an external contact resolver module exports.
#ifndef VELM_CONTACTRESOLVERMODULE_H
#define VELM_CONTACTRESOLVERMODULE_H

/*
 * The C interface of an external contact resolver module: a shared object
 * named by [LocationService] ResolverModule that the proxy asks where a
 * request goes. The module exports one function, VELM_RESOLVER_ENTRY:
 *
 *   int velm_resolve_contacts(const char* request_uri,
 *                             velm_resolver_add_contact add_contact, void* list,
 *                             char* error, size_t error_size);
 *
 * It may be called from many threads at once. For each contact address it
 * found, in order, it calls add_contact(list, address); the address is copied
 * at once. It returns one of the statuses below; with VELM_RESOLVER_ERROR it
 * writes a NUL-terminated explanation of at most error_size bytes to `error`.
 * Nothing allocated by one side is freed by the other.
 */

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    VELM_RESOLVER_SUCCESS = 0,   /* the contacts given are the answer, even none */
    VELM_RESOLVER_NOT_FOUND = 1, /* the module knows no such destination */
    VELM_RESOLVER_NO_ACTION = 2, /* the module leaves the request to the database */
    VELM_RESOLVER_ERROR = 3      /* the module failed; see `error` */
};

typedef void (*velm_resolver_add_contact)(void* list, const char* address);

typedef int (*velm_resolve_contacts_function)(const char* request_uri, velm_resolver_add_contact add_contact,
                                              void* list, char* error, size_t error_size);

#define VELM_RESOLVER_ENTRY "velm_resolve_contacts"

#ifdef __cplusplus
}
#endif

#endif
