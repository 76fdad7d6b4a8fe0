// Which public address a request names, and the identity behind it.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "LowerCase.h"
#include "PublicAddressRecord.h"
#include "Uri.h"

namespace velm {

namespace {

DatabaseResult missing(const char* message) {
    DatabaseResult result;
    result.setBadParameter();
    result.setErrorMessage(message);
    return result;
}

} // namespace

DatabaseResult LocationService::getPublicAddressKey(const char* requestUri, int& key) {
    osk::Uri uri(requestUri != nullptr ? requestUri : "");
    if (!uri.isValid()) {
        DatabaseResult result;
        result.setQueryError();
        result.setErrorMessage("getPublicAddressKey: invalid request uri");
        return result;
    }
    return getPublicAddressKey(uri.getUser(), uri.getHost(), key);
}

DatabaseResult LocationService::getPublicAddressKey(const char* user, const char* host, int& key) {
    if (user == nullptr || host == nullptr)
        return missing("getPublicAddressKey: missing user or host");
    std::string lowerUser = lowerCase(user);
    std::string lowerHost = lowerCase(host);
    m_trace.prn("looking up public address %s@%s", lowerUser.c_str(), lowerHost.c_str());
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay()) {
        m_trace.prn("connection error");
        return result;
    }
    result = isLocalUser(lowerUser.c_str(), lowerHost.c_str());
    if (!result.okay()) {
        if (result.notFound()) {
            m_trace.prn("getPublicAddressKey passed visiting user=%s@%s", lowerUser.c_str(), lowerHost.c_str());
            result.setErrorMessage("getPublicAddressKey passed visiting user");
        }
        return result;
    }
    PublicAddressRecord address;
    result = m_exec->lookupPublicAddress(lowerUser.c_str(), lowerHost.c_str(), address);
    if (!result.okay()) {
        alarmOnFatal("getPublicAddressKey", result);
        m_trace.prn("lookup failed");
        return result;
    }
    key = address.public_address_id();
    m_trace.prn("public address found, key=%d", key);
    return result;
}

DatabaseResult LocationService::getPublicAddressKeyCSID(const char* user, const char* host, int& key, int& csid) {
    if (user == nullptr || host == nullptr)
        return missing("getPublicAddressKeyCSID: missing user or host");
    std::string lowerUser = lowerCase(user);
    std::string lowerHost = lowerCase(host);
    m_trace.prn("getPublicAddressKeyCSID: looking up public address %s@%s", lowerUser.c_str(), lowerHost.c_str());
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay()) {
        m_trace.prn("getPublicAddressKeyCSID: connection error");
        return result;
    }
    PublicAddressRecord address;
    result = m_exec->lookupPublicAddress(lowerUser.c_str(), lowerHost.c_str(), address);
    if (!result.okay()) {
        alarmOnFatal("getPublicAddressKeyCSID", result);
        m_trace.prn("lookup failed");
        return result;
    }
    key = address.public_address_id();
    csid = address.csid();
    m_trace.prn("public address found, key=%d, csid=%d", key, csid);
    return result;
}

DatabaseResult LocationService::getIdentity(const char* user, const char* domain, std::string& identity) {
    return guarded("getIdentity_2", [&](DatabaseCommandExecutor& exec) {
        if (user == nullptr || domain == nullptr)
            return missing("getIdentity: missing user or domain");
        return exec.getIdentity(lowerCase(user).c_str(), lowerCase(domain).c_str(), identity);
    });
}

DatabaseResult LocationService::getIdentity(int key, std::string& identity) {
    std::string user;
    std::string domain;
    DatabaseResult result = guarded("getIdentity_1", [&](DatabaseCommandExecutor& exec) {
        return exec.lookupPublicAddress(key, user, domain);
    });
    if (!result.okay())
        return result;
    return getIdentity(user.c_str(), domain.c_str(), identity);
}

DatabaseResult LocationService::getPublicAddress(int key, std::string& user, std::string& domain) {
    return guarded("getPublicAddress",
                   [&](DatabaseCommandExecutor& exec) { return exec.lookupPublicAddress(key, user, domain); });
}

} // namespace velm
