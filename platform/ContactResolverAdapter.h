// ContactResolverAdapter: the door to the external contact resolver module.
#ifndef VELM_CONTACTRESOLVERADAPTER_H
#define VELM_CONTACTRESOLVERADAPTER_H

#include "ContactResolverModule.h"
#include "Mutex.h"

#include <string>
#include <vector>

namespace velm {

// The door to the external contact resolver module (see
// ContactResolverModule.h). The module named by [LocationService]
// ResolverModule is loaded with dlopen at the first request and stays loaded
// for the life of the process; with no module configured every request is
// answered with status 2 (no action).
class ContactResolverAdapter {
public:
    static ContactResolverAdapter* instance();

    // Asks the module where `requestUri` goes: the contact addresses it gives
    // are appended to `contacts`. Status 0 success, 1 not found, 2 no action,
    // 3 error with the reason in `error`: also when the module cannot be
    // loaded (the reason names the file) or no request URI is given. A module
    // may return other statuses; they are passed on.
    int resolve(const char* requestUri, std::vector<std::string>& contacts, std::string& error);

private:
    ContactResolverAdapter() = default;
    void load();

    osk::Mutex m_mutex;
    bool m_loaded = false;
    velm_resolve_contacts_function m_resolve = nullptr;
    std::string m_loadError;
};

} // namespace velm

#endif
