// Loading the external contact resolver module and asking it where a request goes.
#include "ContactResolverAdapter.h"

#include "AppProperties.h"
#include "SafeLock.h"
#include "Trace.h"

#include <dlfcn.h>

namespace velm {
namespace {

const Trace& trace() {
    static const Trace channel("ContactResolverAdapter");
    return channel;
}

void addContact(void* list, const char* address) {
    if (address != nullptr)
        static_cast<std::vector<std::string>*>(list)->push_back(address);
}

} // namespace

ContactResolverAdapter* ContactResolverAdapter::instance() {
    static ContactResolverAdapter adapter;
    return &adapter;
}

void ContactResolverAdapter::load() {
    m_loaded = true;
    const char* path = AppProperties::get("LocationService", "ResolverModule");
    if (path == nullptr || *path == '\0') {
        trace().prn("no resolver module configured");
        return;
    }
    // The module stays loaded: it may keep state or threads of its own.
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        m_loadError = std::string("cannot load resolver module ") + path + ": " + dlerror();
    } else {
        m_resolve = reinterpret_cast<velm_resolve_contacts_function>(dlsym(handle, VELM_RESOLVER_ENTRY));
        if (m_resolve == nullptr)
            m_loadError = std::string("resolver module ") + path + " has no function " VELM_RESOLVER_ENTRY;
    }
    if (m_loadError.empty())
        trace().prn("loaded resolver module %s", path);
    else
        trace().log("%s", m_loadError.c_str());
}

int ContactResolverAdapter::resolve(const char* requestUri, std::vector<std::string>& contacts, std::string& error) {
    std::string loadError;
    velm_resolve_contacts_function resolveContacts = osk::withCancelSafeLock(m_mutex, [&] {
        if (!m_loaded)
            load();
        loadError = m_loadError;
        return m_resolve;
    });
    if (!loadError.empty()) {
        error = loadError;
        return VELM_RESOLVER_ERROR;
    }
    if (resolveContacts == nullptr)
        return VELM_RESOLVER_NO_ACTION;
    if (requestUri == nullptr) {
        error = "no request URI given";
        return VELM_RESOLVER_ERROR;
    }
    char text[512] = "";
    int status = resolveContacts(requestUri, &addContact, &contacts, text, sizeof text);
    text[sizeof text - 1] = '\0';
    if (status == VELM_RESOLVER_ERROR)
        error = text;
    return status;
}

} // namespace velm
