// Trace channels: which are on, how lines are formatted, and the default sink.
#include "Trace.h"

#include "AppProperties.h"

#include <strings.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>

namespace velm {

struct TraceChannel {
    explicit TraceChannel(const std::string& channelName) : name(channelName) {}
    const std::string name;
    std::atomic<bool> enabled{false};
};

namespace {

bool isOn(const char* value) {
    return value != nullptr &&
           (strcasecmp(value, "on") == 0 || strcasecmp(value, "true") == 0 ||
            strcasecmp(value, "yes") == 0 || std::strcmp(value, "1") == 0);
}

bool listedInEnvironment(const std::string& name) {
    const char* list = std::getenv("VELM_TRACE");
    if (list == nullptr)
        return false;
    std::istringstream items(list);
    std::string item;
    while (std::getline(items, item, ','))
        if (item == name || strcasecmp(item.c_str(), "all") == 0)
            return true;
    return false;
}

bool configuredOn(const std::string& name) {
    return isOn(AppProperties::get("Trace", name.c_str())) || isOn(AppProperties::get("Trace", "All")) ||
           listedInEnvironment(name);
}

class DefaultSink : public TraceSink {
public:
    DefaultSink() {
        const char* output = std::getenv("VELM_TRACE_OUTPUT");
        if (output == nullptr)
            output = AppProperties::get("Trace", "Output");
        if (output == nullptr || std::strcmp(output, "stderr") == 0)
            return;
        if (std::strcmp(output, "syslog") == 0)
            m_syslog = true;
        else if ((m_file = std::fopen(output, "a")) == nullptr)
            std::fprintf(stderr, "velm: cannot open trace file %s: %s\n", output, std::strerror(errno));
    }
    ~DefaultSink() override {
        if (m_file != nullptr)
            std::fclose(m_file);
    }

    void write(const char* channel, const char* text) override {
        if (m_syslog) {
            syslog(LOG_DEBUG, "%s: %s", channel, text);
            return;
        }
        size_t length = std::strlen(text);
        const char* lineEnd = length > 0 && text[length - 1] == '\n' ? "" : "\n";
        std::lock_guard<std::mutex> lock(m_mutex);
        std::fprintf(m_file != nullptr ? m_file : stderr, "[%s] %s%s", channel, text, lineEnd);
        if (m_file != nullptr)
            std::fflush(m_file);
    }

private:
    std::mutex m_mutex;
    bool m_syslog = false;
    FILE* m_file = nullptr;
};

class Registry {
public:
    TraceChannel* channel(const std::string& name) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto& slot = m_channels[name];
        if (!slot) {
            slot = std::make_unique<TraceChannel>(name);
            slot->enabled = configuredOn(name);
        }
        return slot.get();
    }

    TraceSink& sink() {
        TraceSink* installed = m_installed.load(std::memory_order_acquire);
        if (installed != nullptr)
            return *installed;
        std::call_once(m_defaultOnce, [this] { m_default = std::make_unique<DefaultSink>(); });
        return *m_default;
    }

    void setSink(TraceSink* sink) { m_installed.store(sink, std::memory_order_release); }

private:
    std::mutex m_mutex;
    std::map<std::string, std::unique_ptr<TraceChannel>> m_channels;
    std::atomic<TraceSink*> m_installed{nullptr};
    std::once_flag m_defaultOnce;
    std::unique_ptr<DefaultSink> m_default;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

void emit(const TraceChannel& channel, const char* format, va_list args) {
    char line[1024];
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(line, sizeof line, format, copy);
    va_end(copy);
    if (needed < 0)
        return;
    if (static_cast<size_t>(needed) < sizeof line) {
        registry().sink().write(channel.name.c_str(), line);
        return;
    }
    std::string longLine(static_cast<size_t>(needed) + 1, '\0');
    std::vsnprintf(&longLine[0], longLine.size(), format, args);
    registry().sink().write(channel.name.c_str(), longLine.c_str());
}

} // namespace

TraceSink::~TraceSink() = default;

Trace::Trace(const char* channel) : m_channel(registry().channel(channel)) {}

bool Trace::enabled() const {
    return m_channel->enabled.load(std::memory_order_relaxed);
}

const std::string& Trace::name() const {
    return m_channel->name;
}

void Trace::prn(const char* format, ...) const {
    if (!enabled())
        return;
    va_list args;
    va_start(args, format);
    emit(*m_channel, format, args);
    va_end(args);
}

void Trace::prn(const std::string& text) const {
    if (enabled())
        registry().sink().write(m_channel->name.c_str(), text.c_str());
}

void Trace::log(const char* format, ...) const {
    va_list args;
    va_start(args, format);
    emit(*m_channel, format, args);
    va_end(args);
}

void Trace::logToSyslog(int facility, int level, const char* text) const {
    syslog(facility | level, "%s: %s", m_channel->name.c_str(), text);
    registry().sink().write(m_channel->name.c_str(), text);
}

void Trace::enable(const char* channel, bool on) {
    registry().channel(channel)->enabled = on;
}

void Trace::setSink(TraceSink* sink) {
    registry().setSink(sink);
}

Trace& STrace::instance() {
    static Trace channel("velm");
    return channel;
}

} // namespace velm
