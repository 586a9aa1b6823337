#pragma once

/// @file
/// The mark of what the shared libraries export.

/// Marks what the shared libraries export; everything else stays hidden. Exception classes and
/// classes with virtual operations carry it too, so that a program and a library agree on them.
#define VANTRY_EXPORT __attribute__((visibility("default")))
/// Takes a private operation of an exported class out again, so that it may come and go without a
/// program noticing. Not for those that inline code of the headers calls.
#define VANTRY_LOCAL __attribute__((visibility("hidden")))
