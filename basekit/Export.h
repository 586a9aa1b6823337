#pragma once

/// Marks what the shared libraries export; everything else stays hidden. Exception classes and
/// classes with virtual operations carry it too, so that a program and a library agree on them.
#define VANTRY_EXPORT __attribute__((visibility("default")))
