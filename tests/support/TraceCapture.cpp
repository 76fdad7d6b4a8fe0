// Switching trace channels on and recording their lines while a TraceCapture lives.
#include "TraceCapture.h"

#include <algorithm>

namespace velmtest {

TraceCapture::TraceCapture(std::vector<std::string> channels) : m_channels(std::move(channels)) {
    for (const auto& channel : m_channels)
        velm::Trace::enable(channel.c_str(), true);
    velm::Trace::setSink(this);
}

TraceCapture::~TraceCapture() {
    velm::Trace::setSink(nullptr);
    for (const auto& channel : m_channels)
        velm::Trace::enable(channel.c_str(), false);
}

void TraceCapture::write(const char* channel, const char* text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.emplace_back(channel, text);
}

std::vector<std::string> TraceCapture::lines(const std::string& channel) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> texts;
    for (const auto& line : m_lines)
        if (line.first == channel)
            texts.push_back(line.second);
    return texts;
}

bool TraceCapture::contains(const std::string& channel, const std::string& text) const {
    auto texts = lines(channel);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

} // namespace velmtest
