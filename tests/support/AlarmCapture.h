// AlarmCapture: the alarms raised during a test.
#ifndef VELM_TEST_ALARMCAPTURE_H
#define VELM_TEST_ALARMCAPTURE_H

#include "EventMgr.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace velmtest {

// Collects the alarms raised while it lives, in place of the syslog sink.
class AlarmCapture : public EventSink {
public:
    AlarmCapture();
    ~AlarmCapture() override;

    void raise(const std::string& id, const std::string& text) override;

    // (identifier, text) pairs in the order raised.
    std::vector<std::pair<std::string, std::string>> alarms() const;
    // The texts of the alarms raised with `id`.
    std::vector<std::string> texts(const std::string& id) const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, std::string>> m_alarms;
};

} // namespace velmtest

#endif
