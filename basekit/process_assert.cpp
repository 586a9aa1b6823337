#include "basekit/process_assert.h"

#include <atomic>
#include <cstdio>

static std::atomic<AssertSink> s_sink{nullptr};

AssertSink SetAssertSink(AssertSink sink) {
    return s_sink.exchange(sink);
}

void process_assert(const char* expression, const char* file, int line, const char* function) {
    if (const AssertSink sink = s_sink.load()) {
        sink(expression, file, line, function);
        return;
    }
    std::fprintf(stderr, "%s:%d: %s: assertion failed: %s\n", file, line, function, expression);
}
