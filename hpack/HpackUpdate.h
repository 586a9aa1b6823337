#pragma once

/// @file
/// Changing a package in one step.

#include <chrono>
#include <cstdint>
#include <functional>

#include "basekit/qtString.h"
#include "hpack/Hpack.h"

/// How HpackUpdate() works.
struct HpackUpdateOptions {
    /// How long to wait for another program that is changing the package. 0: not at all.
    std::chrono::milliseconds lockLimit = std::chrono::seconds(30);
    /// Receives one line, "waiting for a.hpk, locked by process 123 (hpk)", after one second.
    std::function<void(const qtString& line)> waiting;
    /// Called often: with 0 of 0 bytes while waiting, during the copy, and with all bytes right
    /// before the package is replaced. It may throw to end the work.
    std::function<void(std::uint64_t copied, std::uint64_t size)> step;
    /// Whether to wait until the change is on the disk. Without, a power failure soon after the
    /// call may leave an empty file.
    bool sync = true;
};

/// Changes an existing package: all of the change or none of it, whatever fails and whenever the
/// process is killed or the power fails.
///
///     HpackUpdate("letters.hpk", [](Hpack& package) {
///         package.Rename("alpha", "a");
///         package.AddOrUpdate("beta", "the second letter");
///     });
///
/// The change works on a copy, which then replaces the package. Where the file system can share
/// blocks the copy takes no time; elsewhere it costs reading and writing the file once. Programs
/// that change one package this way, or by the tool hpk, take turns: no change is lost. Readers
/// that have the package open keep reading its former version.
///
/// The new version keeps owner, group, mode and access control list as far as the system permits;
/// nobody gains a right. A package that is reached through a link stays where the link leads.
/// Other hard links to the file keep the former version.
///
/// @param fileName of a package that exists; the folder must permit creating files
/// @param change called once with the package open in mode 'u'; it need not close it. Whatever it
///        throws is passed on, and so is an error of writing that it catches.
/// @throws std::system_error if the file cannot be opened, copied, synced or replaced, with the
///         text "cannot write letters.hpk: No space left on device"; with code() ETIMEDOUT if
///         another program has held the lock for too long
/// @throws qtX<Hpack> and qtX<HioErr> as Hpack::Open() and Hpack::Close() do
///
/// After an exception the package is as it was and no other file is left, with one exception: after
/// "cannot sync FOLDER" the change is in place, but may be gone after a power failure.
///
/// Any number of threads and processes may call it at the same time.
VANTRY_EXPORT void HpackUpdate(const qtString& fileName, const std::function<void(Hpack&)>& change,
                               const HpackUpdateOptions& options = {});
