#pragma once

/// @file
/// Symbol visibility.

/// Exports a symbol; all others are hidden. Exception classes and classes with virtual functions
/// need it too, so that a program and a library share their type information.
#define VANTRY_EXPORT __attribute__((visibility("default")))
/// Hides a private member function of an exported class, which may then change without a change of
/// the binary interface. Not for functions that inline code in headers calls.
#define VANTRY_LOCAL __attribute__((visibility("hidden")))
