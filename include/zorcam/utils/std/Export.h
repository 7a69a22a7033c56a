#pragma once

/// \file
/// Visibility of the library's symbols. The library is built with -fvisibility=hidden and
/// -fvisibility-inlines-hidden, so only what is marked here is exported: every other symbol
/// can change without changing the library's binary interface.

/// Exports a function, variable or class. On a class it exports the members, the vtable and
/// the typeinfo, so callers can derive from it and dynamic_cast to it.
#define ZORCAM_EXPORT __attribute__((visibility("default")))

/// Keeps a private member function of an exported class out of the exported interface; for
/// helpers no inline function of the header calls.
#define ZORCAM_HIDDEN __attribute__((visibility("hidden")))
