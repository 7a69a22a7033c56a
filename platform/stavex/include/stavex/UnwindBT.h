#pragma once

// Backtrace library: the calling thread's call stack as text.

#include <string>

/// Replaces out with the calling thread's backtrace, one frame per line ("#NN pc ... "),
/// innermost frame (the caller of this function) first. out is left empty when the stack
/// cannot be unwound.
void UnwindCurThreadBT(std::string& out);
