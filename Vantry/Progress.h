#pragma once

#include "Vantry/qtAtomic.h"
#include "basekit/Export.h"
#include "basekit/qtxAll.h"

/// Base class of the exceptions that Progress throws.
class VANTRY_EXPORT qtxProgress : public qtxAll {
public:
    using qtxAll::qtxAll;
    qtxProgress(const qtxProgress& other);
    qtxProgress& operator=(const qtxProgress& other);
    ~qtxProgress() override;

    /// Returns "Progress".
    const char* BaseString() const override;
};

/// The operation was asked to stop: code 10, level 2, empty text.
class VANTRY_EXPORT qtxProgressCancel : public qtxProgress {
public:
    using qtxProgress::qtxProgress;
    qtxProgressCancel(const qtxProgressCancel& other);
    qtxProgressCancel& operator=(const qtxProgressCancel& other);
    ~qtxProgressCancel() override;
};

/// Counts the phases of a long operation and the steps of each, and cancels it on request.
///
///     Progress progress;                        // shared with the thread that displays it
///     progress.SetNumOfPhases(1, 0, "starting");
///     progress.IncPhase(fileCount, "copying");
///     for (...) {
///         progress.IncProgress();               // throws once progress.stopRequested is set
///     }
///
/// Threads: one thread, the worker, calls the operations and may read the members. Any other
/// thread and any signal handler may call the accessors (NumOfPhases, Phase, ProgressRange, Steps,
/// PhaseName) and may read and set `stopRequested`. An observer that reads the other members
/// directly is a data race. Successive reads are not a consistent snapshot: an observer may see a
/// phase change half done. Updates take no lock and allocate nothing, so they fit into inner loops.
///
/// A phase or a step beyond its range is reported through process_assert, once per call, and then
/// stored as given.
///
/// A new object has all counts 0, no stop requested and no name. It is constant-initialized: a
/// global one keeps what an earlier static initializer stored in it.
class VANTRY_EXPORT Progress {
public:
    unsigned int numOfPhases = 0;    ///< number of phases; 0 if unknown: any phase is in range
    unsigned int phase = 0;          ///< 0 before the first phase, then 1 to `numOfPhases`
    unsigned int progressRange = 0;  ///< steps of this phase; 0 if unknown: any count is in range
    unsigned int progress = 0;       ///< steps done in this phase
    qtAtomic<bool> stopRequested;    ///< set it to cancel the operation at its next update
    /// Name of this phase. Not owned: the caller keeps the text alive while anyone may read it.
    const char* phaseName = nullptr;

    /// @name Accessors for observers in other threads
    /// Each is one atomic load with acquire order.
    /// @{

    /// Returns the number of phases, or 0 if unknown.
    unsigned int NumOfPhases() const { return Load(numOfPhases); }
    /// Returns the number of the current phase, or 0 before the first one.
    unsigned int Phase() const { return Load(phase); }
    /// Returns the number of steps of the current phase, or 0 if unknown.
    unsigned int ProgressRange() const { return Load(progressRange); }
    /// Returns the number of steps done in the current phase.
    unsigned int Steps() const { return Load(progress); }
    /// Returns the name of the current phase, or null if none was set. Not owned.
    const char* PhaseName() const { return Load(phaseName); }
    /// @}

    /// Starts a run of `numPhases` phases, before its first phase. `range` steps and the name
    /// `label` hold until that phase. Discards a pending stop request.
    void SetNumOfPhases(unsigned int numPhases, unsigned int range, const char* label);

    /// Restarts the steps of this phase with another range. Discards a pending stop request.
    void SetProgressRange(unsigned int range);

    /// Moves to phase `newPhase`, with no step of its `range` done.
    /// @throws qtxProgressCancel if a stop was requested; this clears the request and changes
    ///         nothing else
    void SetPhase(unsigned int newPhase, unsigned int range, const char* label);

    /// Moves to the next phase, with no step of its `range` done.
    /// @throws qtxProgressCancel as SetPhase
    void IncPhase(unsigned int range, const char* label);

    /// Sets the number of steps done in this phase.
    /// @throws qtxProgressCancel as SetPhase
    void SetProgress(unsigned int steps) {
        StopProgressOnRequest();
        Step(steps, "void Progress::SetProgress(unsigned int)");
    }

    /// Adds one step to those done in this phase.
    /// @throws qtxProgressCancel as SetPhase
    void IncProgress() {
        StopProgressOnRequest();
        Step(progress + 1, "void Progress::IncProgress()");
    }

    /// Does nothing unless a stop was requested.
    /// @throws qtxProgressCancel if a stop was requested. The request is cleared first, so one
    ///         request cancels one operation.
    void StopProgressOnRequest() {
        if (stopRequested) {
            Cancel();
        }
    }

private:
    template <class T>
    static T Load(const T& member) {
        return __atomic_load_n(&member, __ATOMIC_ACQUIRE);
    }
    template <class T>
    static void Store(T& member, T value) {
        __atomic_store_n(&member, value, __ATOMIC_RELEASE);
    }

    void Step(unsigned int steps, const char* function) {
        Store(progress, steps);
        if (progressRange != 0 && steps > progressRange) {
            ReportStep(function);
        }
    }
    VANTRY_LOCAL void EnterPhase(unsigned int newPhase, unsigned int range, const char* label,
                                 const char* function);

    // Kept out of the inner loops that the updates are inlined into.
    [[noreturn, gnu::cold]] void Cancel();
    [[gnu::cold]] static void ReportStep(const char* function);
};
