// QuietStdout: standard output silenced while the library prints a row count there.
#ifndef VELMCTL_QUIETSTDOUT_H
#define VELMCTL_QUIETSTDOUT_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace velmctl {

// Reading prefix_map, the library reports the row count on standard output,
// where a program's own output goes (velmctl's JSON, a benchmark's report):
// standard output is silenced while one of these lives.
class QuietStdout {
public:
    QuietStdout() : m_saved(dup(1)) {
        std::fflush(stdout);
        int null = open("/dev/null", O_WRONLY);
        if (null >= 0) {
            dup2(null, 1);
            close(null);
        }
    }
    ~QuietStdout() {
        std::fflush(stdout);
        if (m_saved >= 0) {
            dup2(m_saved, 1);
            close(m_saved);
        }
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int m_saved;
};

} // namespace velmctl

#endif
