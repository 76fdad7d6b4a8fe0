// TraceSink and Trace: named trace channels and where their lines go.
#ifndef VELM_TRACE_H
#define VELM_TRACE_H

#include <string>

namespace velm {

// Where trace lines go. The default sink writes to standard error, to syslog
// or to a file, as [Trace] Output (or VELM_TRACE_OUTPUT) says: "stderr",
// "syslog" or a file path. A host or a test installs its own with
// Trace::setSink.
class TraceSink {
public:
    virtual ~TraceSink();
    // `text` is the formatted message as the caller wrote it.
    virtual void write(const char* channel, const char* text) = 0;
};

struct TraceChannel;

// A named trace channel. A channel is on when [Trace] <name> (or [Trace] All)
// is "on", "true", "yes" or "1", or when the environment variable VELM_TRACE
// lists its name (comma-separated) or "all". prn() on a channel that is off
// returns before formatting anything.
class Trace {
public:
    explicit Trace(const char* channel);

    bool enabled() const;
    const std::string& name() const;

    void prn(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void prn(const std::string& text) const;

    // Written whether the channel is on or not.
    void log(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    // Written to syslog with the priority `facility | level` (LOG_USER is 8,
    // LOG_INFO 6) and, like log(), to the trace sink, whether the channel is
    // on or not.
    void logToSyslog(int facility, int level, const char* text) const;

    static void enable(const char* channel, bool on);
    // Installs `sink` for every channel; null restores the default sink.
    static void setSink(TraceSink* sink);

private:
    TraceChannel* m_channel;
};

// The process-wide channel for code that has no object of its own.
class STrace {
public:
    static Trace& instance();
};

} // namespace velm

using Tracer = velm::Trace;

#endif
