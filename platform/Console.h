// Console: where the library's status lines for an operator go, standard output unless a host routes them.
#ifndef VELM_CONSOLE_H
#define VELM_CONSOLE_H

namespace velm {

// The library prints a few status lines for whoever runs the process (the
// prefix-map thread's wake-ups and shutdown, the rows of a prefix-map read).
// They go to standard output, flushed at once, unless the host installs a
// sink of its own, e.g. to send them to its log. Thread-safe: a sink may be
// installed or removed while other threads print.
class Console {
public:
    // Receives each line as printed, its newline included.
    using Sink = void (*)(const char* text);

    // Installs `sink` for every later line; null restores standard output.
    static void setSink(Sink sink);
    static void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

} // namespace velm

#endif
