// Recording the alarms raised while an AlarmCapture lives.
#include "AlarmCapture.h"

namespace velmtest {

AlarmCapture::AlarmCapture() {
    EventMgr::setSink(this);
}

AlarmCapture::~AlarmCapture() {
    EventMgr::setSink(nullptr);
}

void AlarmCapture::raise(const std::string& id, const std::string& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_alarms.emplace_back(id, text);
}

std::vector<std::pair<std::string, std::string>> AlarmCapture::alarms() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_alarms;
}

std::vector<std::string> AlarmCapture::texts(const std::string& id) const {
    std::vector<std::string> found;
    for (const auto& alarm : alarms())
        if (alarm.first == id)
            found.push_back(alarm.second);
    return found;
}

} // namespace velmtest
