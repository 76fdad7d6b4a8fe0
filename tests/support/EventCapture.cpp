#include "EventCapture.h"

#include <algorithm>

namespace velmtest {

EventCapture::EventCapture() {
    EventMgr::setSink(this);
}

EventCapture::~EventCapture() {
    EventMgr::setSink(nullptr);
}

void EventCapture::raise(const std::string& id, const std::string& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.emplace_back(id, text);
}

std::vector<EventCapture::Event> EventCapture::events() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
}

bool EventCapture::contains(const std::string& id, const std::string& text) const {
    auto all = events();
    return std::find(all.begin(), all.end(), Event(id, text)) != all.end();
}

} // namespace velmtest
