// The status lines for an operator: formatted here, handed to the host's sink or standard output.
#include "Console.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace velm {

namespace {

std::atomic<Console::Sink> installed{nullptr};

} // namespace

void Console::setSink(Sink sink) {
    installed = sink;
}

void Console::print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::vector<char> text(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    if (Sink sink = installed.load()) {
        sink(text.data());
        return;
    }
    std::fputs(text.data(), stdout);
    std::fflush(stdout);
}

} // namespace velm
