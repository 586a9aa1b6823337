#pragma once

#include "Vantry/qtAtomic.h"
#include "basekit/Export.h"
#include "basekit/qtxAll.h"

/// The family of what a Progress throws.
class VANTRY_EXPORT qtxProgress : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxProgress(const qtxProgress& other);
    qtxProgress& operator=(const qtxProgress& other);
    ~qtxProgress() override;

    /// "Progress"
    const char* BaseString() const override;
};

/// The operation was asked to stop: code 10, level 2, an empty text.
class VANTRY_EXPORT qtxProgressCancel : public qtxProgress {
public:
    using qtxProgress::qtxProgress;
    qtxProgressCancel(const qtxProgressCancel& other);
    qtxProgressCancel& operator=(const qtxProgressCancel& other);
    ~qtxProgressCancel() override;
};

/// Counts the phases of a long operation and the steps of each, and stops it on request.
///
///     Progress progress;                        // seen by whoever shows it
///     progress.SetNumOfPhases(1, 0, "starting");
///     progress.IncPhase(fileCount, "copying");
///     for (...) {
///         progress.IncProgress();               // throws once progress.stopRequested is set
///     }
///
/// The members are read directly. One thread, the worker, calls the operations; any thread and any
/// signal handler may read the members and set `stopRequested`, without a lock. A reader may see a
/// change of phase half done. There is no lock and nothing is allocated, so updates fit into inner
/// loops.
///
/// A phase or a step beyond its range is reported through process_assert, once for each such call,
/// and then kept as given.
class VANTRY_EXPORT Progress {
public:
    qtAtomic<unsigned int> numOfPhases;    ///< number of phases; 0: not known, any phase is fine
    qtAtomic<unsigned int> phase;          ///< 0 before the first, then 1 to `numOfPhases`
    qtAtomic<unsigned int> progressRange;  ///< steps of this phase; 0: not known, any count is fine
    qtAtomic<unsigned int> progress;       ///< steps done in this phase
    qtAtomic<bool> stopRequested;          ///< set it to stop the operation at its next update
    /// Names this phase. Not owned: the caller keeps the text alive as long as anyone may read it.
    qtAtomic<const char*> phaseName;

    /// Starts a run of `numPhases` phases, before its first phase; `range` steps and `label` hold
    /// until then. Discards an earlier request to stop.
    void SetNumOfPhases(unsigned int numPhases, unsigned int range, const char* label);

    /// Restarts the steps of this phase with another range. Discards an earlier request to stop.
    void SetProgressRange(unsigned int range);

    /// Moves to phase `newPhase`, with no step of its `range` done.
    /// @throws qtxProgressCancel when a stop was requested; only the request is changed.
    void SetPhase(unsigned int newPhase, unsigned int range, const char* label);

    /// Moves to the next phase, as SetPhase does.
    /// @throws qtxProgressCancel when a stop was requested; only the request is changed.
    void IncPhase(unsigned int range, const char* label);

    /// Sets the number of steps done in this phase.
    /// @throws qtxProgressCancel when a stop was requested; only the request is changed.
    void SetProgress(unsigned int steps) {
        StopProgressOnRequest();
        Step(steps, "void Progress::SetProgress(unsigned int)");
    }

    /// One more step is done.
    /// @throws qtxProgressCancel when a stop was requested; only the request is changed.
    void IncProgress() {
        StopProgressOnRequest();
        Step(progress + 1, "void Progress::IncProgress()");
    }

    /// Nothing, unless a stop was requested.
    /// @throws qtxProgressCancel when it was. The request is then taken back, so that one request
    ///         stops one operation.
    void StopProgressOnRequest() {
        if (stopRequested) {
            Cancel();
        }
    }

private:
    void Step(unsigned int steps, const char* function) {
        progress = steps;
        const unsigned int range = progressRange;
        if (range != 0 && steps > range) {
            ReportStep(function);
        }
    }
    VANTRY_LOCAL void Phase(unsigned int newPhase, unsigned int range, const char* label,
                            const char* function);

    // Out of the way of the inner loops that the updates are inlined into.
    [[noreturn, gnu::cold]] void Cancel();
    [[gnu::cold]] static void ReportStep(const char* function);
};
