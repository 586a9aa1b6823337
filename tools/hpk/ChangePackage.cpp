#include "tools/hpk/ChangePackage.h"

#include "hpack/HpackUpdate.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

// Shows the steps of HpackUpdate() as phases.
class Steps {
public:
    explicit Steps(CTProgress& workProgress) : progress(workProgress) {}

    void operator()(std::uint64_t copied, std::uint64_t size) {
        StopIfInterrupted(progress);
        if (size == 0) {  // waiting for the lock
            return;
        }
        if (changed) {
            StartPhase(progress, "saving", 0);
        } else if (copied == 0) {
            StartPhase(progress, "copying", size, Unit::bytes);
        }
        Advance(progress, copied - shown);
        shown = copied;
    }
    void Changed() { changed = true; }

private:
    CTProgress& progress;
    std::uint64_t shown = 0;
    bool changed = false;
};

}  // namespace

void ChangePackage(const std::string& path, bool quiet, const PackageChange& change) {
    RunLongWork(quiet, [&](CTProgress& progress) {
        Steps steps(progress);
        const LockWait wait = WaitFor(progress);
        HpackUpdateOptions options;
        options.waiting = wait.report;
        options.step = [&](std::uint64_t copied, std::uint64_t size) { steps(copied, size); };
        OnPackage(path, [&] {
            HpackUpdate(
                path,
                [&](Hpack& package) {
                    StartPhase(progress, "changing", 0);
                    change(package, progress);
                    steps.Changed();
                },
                options);
        });
    });
}

}  // namespace vantry_tools
