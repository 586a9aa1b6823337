#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Vantry/CTProgress.h"
#include "tools/common/System.h"

namespace vantry_tools {

/// Runs `work` on a second thread. The calling thread meanwhile shows the progress in a bar and
/// turns SIGINT, SIGTERM and SIGHUP into an interrupt of the progress record:
///
///     RunLongWork(quiet, [&](CTProgress& progress) {
///         StartPhase(progress, "packing", bytes, Unit::bytes);
///         for (...) {
///             StopIfInterrupted(progress);
///             ...
///             Advance(progress, count);
///         }
///     });
///
/// Returns once the work has returned. Until then only this layer writes to standard error.
/// @throws what `work` throws, on the calling thread; Interrupted if the user stopped it
void RunLongWork(bool quiet, const std::function<void(CTProgress&)>& work);

/// What a phase counts.
enum class Unit { items, bytes };

/// Ends the running phase successfully and starts the next.
/// @param total its length; 0 if that is not known
void StartPhase(CTProgress& progress, const char* status, std::uint64_t total,
                Unit unit = Unit::items);

/// Adds to the amount done.
void Advance(CTProgress& progress, std::uint64_t amount);

/// Ends the work from within if the user wants that; destructors then undo what it has begun.
void StopIfInterrupted(const CTProgress& progress);

/// How the tools wait for a lock: after a second they report for whom, unless quiet.
LockWait WaitFor(const CTProgress& progress);

}  // namespace vantry_tools
