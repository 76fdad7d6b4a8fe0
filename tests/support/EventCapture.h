#ifndef VELM_TEST_EVENTCAPTURE_H
#define VELM_TEST_EVENTCAPTURE_H

#include "EventMgr.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace velmtest {

// Collects the alarms raised while it lives, instead of sending them to syslog.
class EventCapture : public EventSink {
public:
    using Event = std::pair<std::string, std::string>;

    EventCapture();
    ~EventCapture() override;

    void raise(const std::string& id, const std::string& text) override;

    // The alarms raised so far, in order, as (identifier, text).
    std::vector<Event> events() const;
    bool contains(const std::string& id, const std::string& text) const;

private:
    mutable std::mutex m_mutex;
    std::vector<Event> m_events;
};

} // namespace velmtest

#endif
