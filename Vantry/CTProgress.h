#pragma once

#include <vector>

#include "Vantry/qtAtomic.h"
#include "basekit/Export.h"
#include "basekit/qtMutex.h"

/// A progress record shared by two threads: a worker updates it; an observer reads it, phase by
/// phase, and may ask the worker to stop.
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
/// Threads: one worker calls Init, NextPhase, EndRun and the setters; any number of observers call
/// the getters and SetInterrupt. No outside lock is needed. Each value is read atomically, but
/// successive reads are not a consistent snapshot: `current` may be newer than `total`. A thread
/// that sees IsRunning() return false sees the outcome and the final amounts that the worker stored
/// before EndRun. The same holds within one GetPhaseData: a record with `running` false has its
/// final amounts and its outcome. Init, NextPhase, SetStatus, GetStatus and GetPhaseData hold a
/// lock for the time of one copy; nothing else takes a lock, so the rest fits into inner loops.
///
/// An interrupt is never lost: it stays set through all phases until Init. Copying takes no lock:
/// no other thread may change either object meanwhile.
class VANTRY_EXPORT CTProgress {
public:
    /// The record of one phase, a plain value.
    struct ProgressData {
        char status[256] = {};     ///< status text, NUL-terminated
        int total = 0;             ///< amount of work of the phase, in the worker's own unit
        int current = 0;           ///< amount done so far
        bool finishState = false;  ///< the outcome, valid once the phase has ended
        bool running = true;       ///< the phase has not ended yet
        bool interrupted = false;  ///< a stop has been requested
    };

    /// Starts a run of one phase, with nothing done.
    CTProgress();
    /// Makes an independent copy.
    /// @throws std::bad_alloc if memory runs out
    CTProgress(const CTProgress& other);
    /// Replaces this record with an independent copy.
    /// @throws std::bad_alloc if memory runs out; this record is unchanged
    CTProgress& operator=(const CTProgress& other);
    ~CTProgress();

    /// Starts a new run of one phase. Discards phases, texts, amounts and a pending interrupt.
    void Init();

    /// Ends the running phase with the outcome `finishState`, unless EndRun already ended it, and
    /// starts the next one. The number of phases is not checked against GetTotalPhaseCount().
    /// @throws std::bad_alloc if memory runs out; the record is unchanged
    void NextPhase(bool finishState);

    /// Ends the running phase, and with it the run, with the outcome `finishState`. A second call
    /// overwrites the outcome.
    void EndRun(bool finishState) {
        currentData.finishState = finishState;
        currentData.running = false;
    }
    /// Returns whether the running phase has not been ended yet.
    bool IsRunning() const { return currentData.running; }
    /// Returns the outcome of an ended run, or false before its end.
    bool GetFinishState() const { return currentData.finishState; }

    /// Asks the worker to stop. May be called from any thread and any signal handler.
    void SetInterrupt() { currentData.interrupted = true; }
    /// Returns whether a stop was requested. The worker polls this between its steps; an interrupt
    /// has no other effect.
    bool IsInterrupted() const { return currentData.interrupted; }

    /// @name The amount of work of the running phase
    /// In a unit of the worker's choice: files, kilobytes, steps.
    /// @{

    /// Sets the total amount of work.
    void SetTotal(int total) { currentData.total = total; }
    /// Returns the total amount of work, or 0 if it was not set.
    int GetTotal() const { return currentData.total; }
    /// Sets the amount done so far.
    void SetCurrent(int current) { currentData.current = current; }
    /// Returns the amount done so far.
    int GetCurrent() const { return currentData.current; }
    /// Adds `amount` to the amount done so far, modulo 2^32.
    void Increment(unsigned int amount) {
        currentData.current =
            static_cast<int>(static_cast<unsigned int>(int{currentData.current}) + amount);
    }
    /// @}

    /// Sets the status text of the running phase.
    /// @param text NUL-terminated, copied; characters after the first 255 are dropped
    void SetStatus(const char* text);
    /// Copies the status text of the running phase and its NUL.
    /// @param buffer room for 256 bytes
    void GetStatus(char* buffer) const;

    /// Copies the record of one phase.
    /// @param phaseNum number of a finished phase, counted from 1; 0 or any greater number selects
    ///        the running phase
    /// @param data receives the record
    void GetPhaseData(unsigned int phaseNum, ProgressData& data) const;

    /// Returns the number of the running phase, counted from 1.
    int GetCurrentPhaseNum() const { return currentPhase + 1; }
    /// Returns the expected number of phases: 1 unless it was set.
    int GetTotalPhaseCount() const { return totalPhases; }
    /// Sets the expected number of phases.
    void SetTotalPhaseCount(int count) { totalPhases = count; }
    /// Returns the number of phases that NextPhase has ended.
    int GetFinishedPhaseCount() const { return currentPhase; }
    /// Returns whether NextPhase has ended at least as many phases as expected.
    bool LastPhaseIsFinished() const { return currentPhase >= totalPhases; }

private:
    // The record of the running phase. It is reused from phase to phase, so unlocked accessors
    // never touch a freed one, and only Init clears an interrupt.
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
