#include "basekit/Trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

static std::atomic<TraceSink> s_sink{nullptr};

TraceSink SetTraceSink(TraceSink sink) {
    return s_sink.exchange(sink);
}

static void WriteByEnvironment(const Trace_file& file, int line, const char* text) {
    const char* const target = secure_getenv("BASEKIT_TRACE");
    if (target == nullptr || *target == '\0') {
        return;
    }
    const bool toStderr = std::strcmp(target, "stderr") == 0;
    std::FILE* const out = toStderr ? stderr : std::fopen(target, "ae");
    if (out == nullptr) {
        return;
    }
    std::fprintf(out, "%s:%d: [%d] %s\n", file.Path(), line, file.Subsystem(), text);
    if (!toStderr) {
        std::fclose(out);
    }
}

void tracef(unsigned char /*detail0*/, int /*level*/, int line, Trace_file& file,
            unsigned char /*detail1*/, const char* format, ...) {
    char onStack[512];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(onStack, sizeof onStack, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return;
    }

    const char* text = onStack;
    std::unique_ptr<char[]> onHeap;
    const std::size_t room = static_cast<std::size_t>(length) + 1;
    if (room > sizeof onStack) {
        onHeap.reset(new (std::nothrow) char[room]);
        if (onHeap != nullptr) {
            va_start(arguments, format);
            std::vsnprintf(onHeap.get(), room, format, arguments);
            va_end(arguments);
            text = onHeap.get();
        }
    }

    const TraceSink sink = s_sink.load();
    (sink != nullptr ? sink : WriteByEnvironment)(file, line, text);
}
