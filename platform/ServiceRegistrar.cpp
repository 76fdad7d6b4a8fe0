// Locating services through the installed registrar, else through the configuration.
#include "ServiceRegistrar.h"

#include "AppProperties.h"

#include <atomic>

namespace velm {
namespace {

std::atomic<ServiceRegistrar*> installedRegistrar{nullptr};

} // namespace

ServiceRegistrar::~ServiceRegistrar() = default;

ServiceRegistrar* ServiceRegistrar::instance() {
    static ServiceRegistrar fromConfiguration;
    ServiceRegistrar* installed = installedRegistrar.load(std::memory_order_acquire);
    return installed != nullptr ? installed : &fromConfiguration;
}

void ServiceRegistrar::setInstance(ServiceRegistrar* registrar) {
    installedRegistrar.store(registrar, std::memory_order_release);
}

bool ServiceRegistrar::locate(const std::string& name, std::string& out, const std::string& fallback) {
    const char* location = AppProperties::get("Services", name.c_str());
    out = location != nullptr ? location : fallback;
    return location != nullptr;
}

} // namespace velm
