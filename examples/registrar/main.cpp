// velm-registrar: an example SIP registrar and redirect server on velmdb.
// REGISTER binds contacts; INVITE, MESSAGE and OPTIONS to a user are answered
// with 302 and the user's contacts. UDP and TCP; REGISTER needs digest
// credentials unless configured otherwise.
#include "Console.h"
#include "ContactsCacheSync.h"
#include "DigestAuthenticator.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "MonitorWatch.h"
#include "Options.h"
#include "PrefixMapMonitor.h"
#include "SipRequest.h"
#include "SipServer.h"
#include "Trace.h"

#include <csignal>
#include <cstdio>
#include <memory>

namespace {

// The library's status lines join the registrar's own log.
void logConsoleLine(const char* text) {
    static const velm::Trace console("Registrar");
    console.log("%s", text);
}

// The monitor is looked at every second; after a failed restart the next
// attempt waits twice as long as the last, but never more than 10 s, so that
// digit routes are back within seconds of the database and a long outage
// costs one connection attempt (and one alarm) each 10 s.
const int FIRST_RESTART_DELAY = 1;
const int MAX_RESTART_DELAY = 10;

} // namespace

int main(int argc, char** argv) {
    registrar::Options options;
    registrar::DigestSettings digest;
    std::string error;
    const bool parsed = registrar::parseOptions(argc, argv, options, error);
    if (parsed && (options.help || options.version)) {
        std::fputs(options.help ? registrar::USAGE : registrar::VERSION, stdout);
        return 0;
    }
    if (!parsed || !registrar::loadConfiguration(options, error) ||
        !registrar::readDigestSettings(options.noAuth, digest, error)) {
        if (!error.empty())
            std::fprintf(stderr, "velm-registrar: %s\n", error.c_str());
        std::fputs(registrar::USAGE, stderr);
        return 2;
    }
    velm::Trace trace("Registrar");
    velm::Console::setSink(&logConsoleLine);
    registrar::SipRequest::initialiseParser();

    // Before any thread starts: the pool singleton is made without a lock,
    // and only the main thread is to receive the stop signals.
    velm::LocationServicePool* pool = velm::LocationServicePool::Instance();
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    // checkConnect() only says that the service has tried to connect: it
    // answers ok with the server down. A statement that really runs tells.
    velm::LocationService* service = pool->getConnection();
    velm::DatabaseResult connected;
    int prefixCounter = 0;
    if (service != nullptr)
        connected = service->checkPrefixMap(&prefixCounter);
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
    registrar::MonitorWatch watch(FIRST_RESTART_DELAY, MAX_RESTART_DELAY);
    watch.start();

    std::unique_ptr<registrar::DigestAuthenticator> authenticator;
    if (digest.enabled)
        authenticator = std::make_unique<registrar::DigestAuthenticator>(options.domain, digest);
    else
        trace.log("REGISTER is not authenticated");
    options.server.authenticator = authenticator.get();
    registrar::SipServer server(options.server);
    if (!server.open(error)) {
        std::fprintf(stderr, "velm-registrar: %s\n", error.c_str());
        watch.stop();
        velm::PrefixMapMonitor::destroy();
        velm::LocationServicePool::destroy();
        return 1;
    }
    // Filled before the workers answer; with it off they read the database.
    registrar::ContactsCacheSync contactsCache;
    if (registrar::contactsCacheConfigured() && !contactsCache.start())
        trace.log("contacts cache not filled: contacts are read from the database until it is");
    server.start();
    std::printf("velm-registrar listening on %s:%d (udp, tcp) with %d threads\n", options.server.address.c_str(),
                server.port(), options.server.threads);
    std::fflush(stdout);
    trace.log("listening on %s:%d with %d threads", options.server.address.c_str(), server.port(),
              options.server.threads);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    trace.log("signal %d: stopping", signal);
    server.stop();
    contactsCache.stop();
    // The watch restarts the monitor, and both threads use pooled
    // connections: the watch goes first, then the monitor, then the pool.
    watch.stop();
    velm::PrefixMapMonitor::destroy();
    velm::LocationServicePool::destroy();
    return 0;
}
