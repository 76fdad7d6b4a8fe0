// TraceCapture: the trace lines written during a test.
#ifndef VELM_TEST_TRACECAPTURE_H
#define VELM_TEST_TRACECAPTURE_H

#include "Trace.h"

#include <mutex>
#include <string>
#include <vector>

namespace velmtest {

// Collects the trace lines of the channels it switches on, for as long as it
// lives.
class TraceCapture : public velm::TraceSink {
public:
    explicit TraceCapture(std::vector<std::string> channels);
    ~TraceCapture() override;

    void write(const char* channel, const char* text) override;

    // The texts written to `channel`, in order.
    std::vector<std::string> lines(const std::string& channel) const;
    bool contains(const std::string& channel, const std::string& text) const;

private:
    std::vector<std::string> m_channels;
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, std::string>> m_lines;
};

} // namespace velmtest

#endif
