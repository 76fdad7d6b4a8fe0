// velm-registrar: an example SIP registrar and redirect server on velmdb.
// REGISTER binds contacts; INVITE, MESSAGE and OPTIONS to a user are answered
// with 302 and the user's contacts. UDP only, no authentication.
#include "ContactsCacheSync.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "Options.h"
#include "PrefixMapMonitor.h"
#include "SipRequest.h"
#include "SipServer.h"
#include "Trace.h"

#include <csignal>
#include <cstdio>

int main(int argc, char** argv) {
    registrar::Options options;
    std::string error;
    if (!registrar::parseOptions(argc, argv, options, error) || !registrar::loadConfiguration(options, error)) {
        if (!error.empty())
            std::fprintf(stderr, "velm-registrar: %s\n", error.c_str());
        std::fputs(registrar::USAGE, stderr);
        return 2;
    }
    velm::Trace trace("Registrar");
    registrar::SipRequest::initialiseParser();

    // Before any thread starts: the pool singleton is made without a lock,
    // and only the main thread is to receive the stop signals.
    velm::LocationServicePool* pool = velm::LocationServicePool::Instance();
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    velm::LocationService* service = pool->getConnection();
    velm::DatabaseResult connected;
    if (service != nullptr)
        service->checkConnect(connected);
    if (service == nullptr || !connected.okay()) {
        std::fprintf(stderr, "velm-registrar: no database connection: %s\n",
                     service == nullptr ? "no location service" : connected.getErrorMessage().c_str());
        velm::LocationServicePool::destroy();
        return 3;
    }
    service->setPrimaryDomain(options.domain);
    velm::DatabaseResult prefixes = service->createPrefixMap();
    if (!prefixes.okay())
        trace.log("no digit-prefix routes: %s", prefixes.getErrorMessage().c_str());
    velm::PrefixMapMonitor::instance();

    registrar::SipServer server(options.server);
    if (!server.open(error)) {
        std::fprintf(stderr, "velm-registrar: %s\n", error.c_str());
        velm::PrefixMapMonitor::destroy();
        velm::LocationServicePool::destroy();
        return 1;
    }
    // Filled before the workers answer; with it off they read the database.
    registrar::ContactsCacheSync contactsCache;
    if (registrar::contactsCacheConfigured() && !contactsCache.start())
        trace.log("contacts cache not filled: contacts are read from the database until it is");
    server.start();
    std::printf("velm-registrar listening on %s:%d (udp) with %d threads\n", options.server.address.c_str(),
                server.port(), options.server.threads);
    std::fflush(stdout);
    trace.log("listening on %s:%d with %d threads", options.server.address.c_str(), server.port(),
              options.server.threads);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    trace.log("signal %d: stopping", signal);
    server.stop();
    contactsCache.stop();
    // The monitor's thread uses a pooled connection: it goes first.
    velm::PrefixMapMonitor::destroy();
    velm::LocationServicePool::destroy();
    return 0;
}
