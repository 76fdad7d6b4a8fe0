// ServiceRegistrar: where the installation's services, such as the database, live.
#ifndef VELM_SERVICEREGISTRAR_H
#define VELM_SERVICEREGISTRAR_H

#include <string>

namespace velm {

// Finds where the services of the installation live, such as the database
// ("velm.sip.db"). The default registrar reads [Services] <name> from the
// configuration (AppProperties); a host with a directory of its own installs
// a subclass with setInstance.
class ServiceRegistrar {
public:
    virtual ~ServiceRegistrar();

    // The registrar in use: the installed one, else the configuration reader.
    static ServiceRegistrar* instance();
    // Installs `registrar` for the whole process; null restores the default.
    static void setInstance(ServiceRegistrar* registrar);

    // The location of service `name` into `out` and true; when the service is
    // not configured, `fallback` into `out` and false.
    virtual bool locate(const std::string& name, std::string& out, const std::string& fallback);
};

} // namespace velm

#endif
