#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "hpack/Hfile32.h"
#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackCompact.h"
#include "hpack/HpackRecover.h"
#include "python/Buffer.h"
#include "python/Convert.h"

namespace {

using Fault = std::tuple<std::string, std::string, std::uint32_t, std::optional<qtString>>;

std::vector<Fault> Check(Generic32& stream) {
    std::vector<Fault> faults;
    for (const HpackFault& fault : HpackCheck(stream).faults) {
        faults.emplace_back(HpackFault::Name(fault.kind), HpackFault::Text(fault.kind),
                            fault.offset, fault.ofItem ? std::optional(fault.key) : std::nullopt);
    }
    return faults;
}

std::vector<Fault> CheckFile(const qtString& name) {
    const py::gil_scoped_release others;
    Hfile32 file;
    file.Open(name, 'r');
    return Check(file);
}

std::vector<Fault> CheckBuffer(Buffer& buffer) {
    buffer.Content();  // throws while it is being changed; the interpreter's lock keeps it so
    Hmemory memory;
    memory.Open(buffer.bytes, 'r');
    return Check(memory);
}

using Note = std::tuple<std::string, std::string, std::uint32_t, qtString>;
using Recovery =
    std::tuple<std::string, bool, std::uint32_t, std::uint32_t, std::uint32_t, std::vector<Note>>;

// Ctrl-C is answered between items, not at each: the interpreter's lock may be long in coming.
void StopIfInterrupted(std::size_t item, std::size_t /*count*/) {
    constexpr std::size_t interval = 1024;
    if (item % interval == interval - 1) {
        const py::gil_scoped_acquire interpreter;
        if (PyErr_CheckSignals() != 0) {
            throw py::error_already_set();
        }
    }
}

Recovery Recover(const qtString& name, const qtString& out, bool unlisted) {
    const py::gil_scoped_release others;
    Hfile32 file;
    file.Open(name, 'r');
    Hpack target;
    target.Open(out, 'w');
    const HpackRecoverReport report = HpackRecover(file, target, {unlisted, &StopIfInterrupted});
    target.Close();
    if (report.items == 0 && !report.header) {
        throw qtX<Hpack>((HpackErrors::notExpectedFormat + name).c_str(), HpackErrors::format,
                         name);
    }
    std::vector<Note> notes;
    for (const HpackRecoverNote& note : report.notes) {
        notes.emplace_back(HpackRecoverNote::Name(note.kind), HpackRecoverNote::Text(note.kind),
                           note.offset, note.key);
    }
    static constexpr const char* states[] = {"none", "damaged", "strayed", "good"};
    return {states[report.index], report.header,     report.items,
            report.listed,        report.superseded, std::move(notes)};
}

void Compact(const qtString& name, const qtString& out, bool byOffset) {
    const py::gil_scoped_release others;
    Hpack source;
    source.Open(name, 'r');
    Hpack target;
    target.Open(out, 'w');
    HpackCompact(source, target, byOffset ? HpackOrder::offset : HpackOrder::key,
                 &StopIfInterrupted);
    target.Close();
    target.Open(out, 'r');
    if (!HpackSame(source, target, &StopIfInterrupted)) {
        throw qtX<HioErr>((HioErrors::readFailed + out).c_str(), HioErrors::read, out);
    }
}

}  // namespace

void DefineRepair(py::module_& module) {
    module.def("check", &CheckFile);
    module.def("check", &CheckBuffer);
    module.def("recover", &Recover);
    module.def("compact", &Compact);
}
