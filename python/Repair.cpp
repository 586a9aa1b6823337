#include <sys/stat.h>

#include <cerrno>
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
#include "python/Errors.h"
#include "python/RenamedFile.h"
#include "system/AtomicFile.h"
#include "system/FileLock.h"

using namespace vantry_internal;

namespace vantry_python {

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
    buffer.Content();  // throws while a writer has it; the interpreter's lock keeps writers out
    Hmemory memory;
    memory.Open(buffer.bytes, 'r');
    return Check(memory);
}

using Note = std::tuple<std::string, std::string, std::uint32_t, qtString>;
using Recovery =
    std::tuple<std::string, bool, std::uint32_t, std::uint32_t, std::uint32_t, std::vector<Note>>;

void StopIfInterrupted() {
    const py::gil_scoped_acquire interpreter;
    if (PyErr_CheckSignals() != 0) {
        throw py::error_already_set();
    }
}

// Small items take less time than waiting for the interpreter's lock.
void StopBetweenItems(std::size_t item, std::size_t /*count*/) {
    constexpr std::size_t interval = 1024;
    if (item % interval == interval - 1) {
        StopIfInterrupted();
    }
}

// Creates the package `out`, or replaces the locked one, with what create(package) writes, after
// compare(package) has accepted it.
template <class Create, class Compare>
void Appear(const qtString& out, const FileLock* lock, Create create, Compare compare) {
    std::optional<AtomicFile> file;
    try {
        if (lock != nullptr) {
            file.emplace(*lock);
        } else {
            struct stat status;
            if (lstat(out.c_str(), &status) == 0) {  // also a dangling link
                throw SystemError(EEXIST, "cannot create", out);
            }
            file.emplace(out, AtomicFile::Existing::refuse);
        }
    } catch (const SystemError& error) {
        FailFile(error, HioErrors::open, out);
    }
    const auto openOn = [&](Hpack& package, char mode) {
        auto stream = std::make_unique<RenamedFile>();
        stream->OpenAs(out, file->Path(), mode);
        package.Open(qtPtrLight<Generic32>(stream.release()), mode);
    };
    Hpack package;
    openOn(package, 'w');
    create(package);
    package.Close();
    openOn(package, 'r');
    compare(package);
    package.Close();
    try {
        file->Commit();
    } catch (const SystemError& error) {
        FailFile(error, HioErrors::close, out);
    }
}

Recovery Recover(const qtString& name, const qtString& out, bool unlisted) {
    const py::gil_scoped_release others;
    Hfile32 file;
    file.Open(name, 'r');
    HpackRecoverReport report;
    const auto recover = [&](Hpack& target) {
        report = HpackRecover(file, target, {unlisted, {}, &StopIfInterrupted});
        if (report.items == 0 && !report.header) {
            throw qtX<Hpack>((HpackErrors::notExpectedFormat + name).c_str(), HpackErrors::format,
                             name);
        }
    };
    Appear(out, nullptr, recover, [](Hpack& /*target*/) {});
    std::vector<Note> notes;
    for (const HpackRecoverNote& note : report.notes) {
        notes.emplace_back(HpackRecoverNote::Name(note.kind), HpackRecoverNote::Text(note.kind),
                           note.offset, note.key);
    }
    static constexpr const char* states[] = {"none", "damaged", "displaced", "good"};
    return {states[report.index], report.header,     report.items,
            report.listed,        report.superseded, std::move(notes)};
}

// Rewrites the package `name`: in place, or as the new file `out`.
void Compact(const qtString& name, const std::optional<qtString>& out, bool byOffset) {
    const py::gil_scoped_release others;
    std::optional<FileLock> lock;
    try {
        if (!out) {
            LockWait wait;
            wait.poll = &StopIfInterrupted;
            lock.emplace(name, wait);
        }
    } catch (const SystemError& error) {
        FailFile(error, HioErrors::open, name);
    }
    Hpack source;
    const auto compact = [&](Hpack& target) {
        source.Open(name, 'r');
        const HpackOrder order = byOffset ? HpackOrder::offset : HpackOrder::key;
        HpackCompact(source, target, order, &StopBetweenItems);
    };
    const auto compare = [&](Hpack& target) {
        if (!HpackSame(source, target, &StopBetweenItems)) {
            throw qtX<HioErr>((HioErrors::readFailed + name).c_str(), HioErrors::read, name);
        }
    };
    Appear(out.value_or(name), lock ? &*lock : nullptr, compact, compare);
}

}  // namespace

void DefineRepair(py::module_& module) {
    module.def("check", &CheckFile);
    module.def("check", &CheckBuffer);
    module.def("recover", &Recover);
    module.def("compact", &Compact);
}

}  // namespace vantry_python
