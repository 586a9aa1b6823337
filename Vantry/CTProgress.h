#pragma once

#include <vector>

#include "Vantry/qtAtomic.h"
#include "basekit/Export.h"
#include "basekit/qtMutex.h"

/// A record of progress between two threads: a worker keeps it up to date; an observer reads it,
/// phase by phase, and may ask the worker to stop.
///
///     // the worker                              // the observer
///     progress.Init();
///     progress.SetStatus("copying");
///     progress.SetTotal(fileCount);
///     for (...) {
///         if (progress.IsInterrupted()) ...      progress.SetInterrupt();
///         progress.Increment(1);                 progress.GetCurrent(), progress.GetTotal()
///     }
///     progress.EndRun(true);                     progress.IsRunning(), progress.GetFinishState()
///
/// The worker calls Init, NextPhase, EndRun and the setters; the observer calls the getters and
/// SetInterrupt. They need no lock of their own, and there may be several observers. Every single
/// value is whole, but two of them may stem from different moments: a new `current` beside an old
/// `total`. After EndRun, whoever sees IsRunning() false also sees the outcome. Init, NextPhase,
/// SetStatus, GetStatus and GetPhaseData take a lock for the time of one copy; nothing else does,
/// and inner loops may well call the rest.
///
/// An interrupt is never lost: it stays set until Init, through any number of phases. Copying a
/// record takes no lock: nobody may change either side meanwhile.
class VANTRY_EXPORT CTProgress {
public:
    /// The record of one phase, a plain value.
    struct ProgressData {
        char status[256] = {};     ///< status text, NUL-terminated
        int total = 0;             ///< amount of work of the phase, in the worker's own unit
        int current = 0;           ///< amount done so far
        bool finishState = false;  ///< the outcome, once the phase has ended
        bool running = true;       ///< the phase has not ended yet
        bool interrupted = false;  ///< a stop has been requested
    };

    /// A run of one phase, running, with nothing done.
    CTProgress();
    /// A copy is independent of its source.
    /// @throws std::bad_alloc
    CTProgress(const CTProgress& other);
    /// @throws std::bad_alloc; nothing is changed then.
    CTProgress& operator=(const CTProgress& other);
    ~CTProgress();

    /// Starts a new run of one phase: forgets phases, texts, amounts and a pending interrupt.
    void Init();

    /// Ends the running phase with `finishState`, unless EndRun has already done so, and starts the
    /// next one. It may go past the last phase.
    /// @throws std::bad_alloc when there is no memory to keep the phase; nothing is changed then.
    void NextPhase(bool finishState);

    /// Ends the running phase, and with it the run, with an outcome.
    void EndRun(bool finishState) {
        currentData.finishState = finishState;
        currentData.running = false;
    }
    /// Whether the run has not ended yet.
    bool IsRunning() const { return currentData.running; }
    /// The outcome of a run that has ended.
    bool GetFinishState() const { return currentData.finishState; }

    /// Asks the worker to stop. Any thread and any signal handler may call it.
    void SetInterrupt() { currentData.interrupted = true; }
    /// The worker looks here between its steps; an interrupt does nothing by itself.
    bool IsInterrupted() const { return currentData.interrupted; }

    /// @name The amount of work of the running phase
    /// In a unit that the worker chooses: files, kilobytes, steps.
    /// @{

    /// All that there is to do.
    void SetTotal(int total) { currentData.total = total; }
    /// All that there is to do; 0 until somebody has said so.
    int GetTotal() const { return currentData.total; }
    /// What is done.
    void SetCurrent(int current) { currentData.current = current; }
    /// What is done.
    int GetCurrent() const { return currentData.current; }
    /// Adds `amount` to what is done; beyond the range of an int it wraps.
    void Increment(unsigned int amount) {
        currentData.current =
            static_cast<int>(static_cast<unsigned int>(int{currentData.current}) + amount);
    }
    /// @}

    /// Sets the status text of the running phase, cut at 255 characters.
    void SetStatus(const char* text);
    /// Copies the status text and its NUL. @param buffer room for 256 bytes
    void GetStatus(char* buffer) const;

    /// Copies the record of phase `phaseNum`, counted from 1, when it has ended; with 0 or any
    /// greater number, that of the running phase.
    void GetPhaseData(unsigned int phaseNum, ProgressData& data) const;

    /// The number of the running phase, counted from 1.
    int GetCurrentPhaseNum() const { return currentPhase + 1; }
    /// How many phases the run is expected to have, 1 unless somebody has said otherwise.
    int GetTotalPhaseCount() const { return totalPhases; }
    /// Says how many phases the run is expected to have.
    void SetTotalPhaseCount(int count) { totalPhases = count; }
    /// How many phases have been ended by NextPhase.
    int GetFinishedPhaseCount() const { return currentPhase; }
    /// As many phases as expected have been finished, or more.
    bool LastPhaseIsFinished() const { return currentPhase >= totalPhases; }

private:
    // The record of the running phase. It stays where it is from phase to phase, so that nobody
    // ever reaches a former one, and nothing but Init takes an interrupt back.
    struct RunningData {
        char status[256] = {};
        qtAtomic<int> total;
        qtAtomic<int> current;
        qtAtomic<bool> finishState;
        qtAtomic<bool> running{true};
        qtAtomic<bool> interrupted;

        VANTRY_LOCAL ProgressData Snapshot() const;
        VANTRY_LOCAL void StartPhase();
    };

    qtAtomic<int> currentPhase;  // always the number of finished phases
    qtAtomic<int> totalPhases{1};
    mutable qtMutex mutex{false};  // guards `finishedPhases` and the status text
    RunningData currentData;
    std::vector<ProgressData> finishedPhases;
};
