#pragma once

#include <cstddef>
#include <functional>

#include "Vantry/CTProgress.h"

namespace vantry_tools {

/// Runs `work` on a thread of its own, while the calling thread shows its progress in a bar and
/// turns Ctrl-C (and the requests to end and to hang up) into an interrupt of the progress record:
///
///     RunLongWork(quiet, [&](CTProgress& progress) {
///         StartPhase(progress, "packing", count);
///         for (...) {
///             StopIfInterrupted(progress);
///             ...
///             progress.Increment(1);
///         }
///     });
///
/// Returns when the work has returned. Standard error belongs to the bar until then.
/// @throws what `work` throws, on the calling thread; Interrupted when the user has stopped it
void RunLongWork(bool quiet, const std::function<void(CTProgress&)>& work);

/// Ends the running phase well and starts the next. @param total its steps; 0: not known
void StartPhase(CTProgress& progress, const char* status, std::size_t total);

/// Ends the work from within, once the user wants that: whatever it has begun is then taken back by
/// destructors.
void StopIfInterrupted(const CTProgress& progress);

}  // namespace vantry_tools
