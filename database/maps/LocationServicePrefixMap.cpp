// The digit-prefix tree: building it from prefix_map, rebuilding it, walking it and freeing it.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "PrefixMap.h"
#include "PrefixMapRecord.h"
#include "SafeLock.h"

#include <cstring>
#include <memory>

namespace velm {

namespace {

PrefixMap* childFor(const PrefixMap& node, char digit) {
    for (PrefixMap* child : node.m_subNodes)
        if (child->m_digit == digit)
            return child;
    return nullptr;
}

} // namespace

DatabaseResult LocationService::createPrefixMap() {
    return osk::withCancelSafeLock(m_mutexPrefix, [this] { return createPrefix(); });
}

DatabaseResult LocationService::recreatePrefixMap() {
    return osk::withCancelSafeLock(m_mutexPrefix, [this] {
        if (m_prefixMap != nullptr)
            deleteNodes(m_prefixMap);
        m_prefixMap = nullptr;
        return createPrefix();
    });
}

void LocationService::destroyPrefixmap() {
    osk::withCancelSafeLock(m_mutexPrefix, [this] {
        if (m_prefixMap != nullptr)
            deleteNodes(m_prefixMap);
        m_prefixMap = nullptr;
    });
}

DatabaseResult LocationService::createPrefix() {
    m_trace.prn("createPrefix CALLED\n");
    if (m_prefixMap != nullptr)
        return DatabaseResult();
    std::vector<PrefixMapRecord> maps;
    DatabaseResult result =
        guarded("createPrefix", [&](DatabaseCommandExecutor& exec) { return exec.getPrefixMaps(maps); });
    if (!result.okay()) {
        m_trace.prn(result.getErrorMessage());
        return result;
    }
    m_prefixMap = new PrefixMap();
    for (const PrefixMapRecord& row : maps)
        addPrefixNode(row.prefix().c_str(), 0, row.csid(), row.total_length(), m_prefixMap);
    return result;
}

// One level per character, in a loop rather than by recursion: the tree is
// as deep as the longest prefix in the table.
void LocationService::addPrefixNode(const char* prefix, int index, int csid, int totalLength, PrefixMap* node) {
    if (prefix == nullptr || node == nullptr)
        return;
    const size_t length = std::strlen(prefix);
    if (index < 0 || static_cast<size_t>(index) > length)
        return;
    const bool tracing = m_trace.enabled();
    for (;; ++index) {
        if (tracing)
            m_trace.prn("addNode: prefix: %s, index of prefix: %d, csid: %d, tot_length: %d\n", prefix, index, csid,
                        totalLength);
        const char digit = prefix[index];
        const bool last = length <= static_cast<size_t>(index) + 1;
        PrefixMap* child = childFor(*node, digit);
        if (child != nullptr) {
            if (tracing)
                m_trace.prn("addNode: found digit %c at subNode\n", digit);
            if (last) {
                child->m_csid = csid;
                child->m_total_length = totalLength;
                if (tracing)
                    m_trace.prn("put csid for subString of existing prefix here %d\n", csid);
                return;
            }
        } else {
            if (tracing)
                m_trace.prn("addNode: subNode for %c not found, adding new one\n", digit);
            auto created = std::make_unique<PrefixMap>();
            created->m_digit = digit;
            node->m_subNodes.push_back(created.get());
            child = created.release();
            if (last) {
                child->m_csid = csid;
                child->m_total_length = totalLength;
                if (tracing)
                    m_trace.prn("put csid %d here, tot_length %d\n", csid, totalLength);
                return;
            }
        }
        node = child;
    }
}

void LocationService::findPrefix(const char* user, int& csid, int index, PrefixMap* node) {
    if (user == nullptr || node == nullptr)
        return;
    const int length = static_cast<int>(std::strlen(user));
    if (index < 0 || index > length)
        return;
    const bool tracing = m_trace.enabled();
    // A node made from an empty prefix matches the terminating zero and has
    // no children, so the walk never reads past the end of `user`.
    for (;; ++index) {
        if (tracing)
            m_trace.prn("find: user %s, index %d, nodes %d\n", user, index, static_cast<int>(node->m_subNodes.size()));
        PrefixMap* match = childFor(*node, user[index]);
        if (match == nullptr)
            return;
        if (match->m_total_length == 0 || match->m_total_length == length)
            csid = match->m_csid;
        if (match->m_subNodes.empty())
            return;
        node = match;
    }
}

// With a stack of its own rather than by recursion, as the tree may be deep.
void LocationService::deleteNodes(PrefixMap* node) {
    std::vector<PrefixMap*> pending;
    if (node != nullptr)
        pending.push_back(node);
    while (!pending.empty()) {
        PrefixMap* next = pending.back();
        pending.pop_back();
        pending.insert(pending.end(), next->m_subNodes.begin(), next->m_subNodes.end());
        delete next;
    }
}

DatabaseResult LocationService::getPrefixMap(std::vector<PrefixMapRecord>& maps) {
    DatabaseResult result =
        guarded("getPrefixMap", [&](DatabaseCommandExecutor& exec) { return exec.getPrefixMaps(maps); });
    if (!result.okay()) {
        m_trace.prn(result.getErrorMessage());
        return result;
    }
    m_trace.prn("lookupDigitMap: result contains %d maps", static_cast<int>(maps.size()));
    return result;
}

DatabaseResult LocationService::checkPrefixMap(int* counter) {
    m_trace.prn("checking trigger_notify table for prefix_map update");
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay()) {
        m_trace.prn("connection error");
        return result;
    }
    if (counter == nullptr) {
        result.setBadParameter();
        result.setErrorMessage("checkPrefixMap: no place for the counter");
        return result;
    }
    result = m_exec->checkPrefixMap(counter);
    alarmOnFatal("checkPrefixMap", result);
    if (!result.okay())
        m_trace.prn("checking of prefix_map failed");
    return result;
}

} // namespace velm
