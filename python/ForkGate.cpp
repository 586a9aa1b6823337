#include <condition_variable>
#include <new>

#include "python/Convert.h"
#include "python/Guarded.h"

namespace vantry_python {

namespace {

struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    unsigned int inside = 0;  // threads that hold a passage
    bool closed = false;      // a fork is about to start
};

// Never destroyed: threads may outlive the module's static objects.
alignas(Gate) unsigned char storage[sizeof(Gate)];
Gate* const gate = new (storage) Gate;

thread_local unsigned int passages = 0;  // of this thread
unsigned int generation = 0;

// A thread may fork while it holds a passage, from a Python file object: it waits for the others.
unsigned int Own() {
    return passages > 0 ? 1 : 0;
}

void Close() {
    const py::gil_scoped_release others;
    std::unique_lock<std::mutex> lock(gate->mutex);
    gate->changed.wait(lock, [] { return !gate->closed; });
    gate->closed = true;
    gate->changed.wait(lock, [] { return gate->inside == Own(); });
}

void Open() {
    const std::lock_guard<std::mutex> lock(gate->mutex);
    gate->closed = false;
    gate->changed.notify_all();
}

// The child has none of the threads that the parent's gate may count or have waiting.
void Renew() {
    new (storage) Gate;
    gate->inside = Own();
    ++generation;
}

}  // namespace

ForkGate::Passage::Passage() {
    if (passages++ == 0) {
        std::unique_lock<std::mutex> lock(gate->mutex);
        gate->changed.wait(lock, [] { return !gate->closed; });
        ++gate->inside;
    }
}

ForkGate::Passage::~Passage() {
    if (--passages == 0) {
        const std::lock_guard<std::mutex> lock(gate->mutex);
        --gate->inside;
        if (gate->closed) {
            gate->changed.notify_all();
        }
    }
}

unsigned int ForkGate::Generation() {
    return generation;
}

void ForkGate::Install() {
    using py::literals::operator""_a;
    py::module_::import("os").attr("register_at_fork")(
        "before"_a = py::cpp_function(&Close), "after_in_parent"_a = py::cpp_function(&Open),
        "after_in_child"_a = py::cpp_function(&Renew));
}

}  // namespace vantry_python
