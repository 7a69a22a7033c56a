// Host stand-in for the backtrace library, built on the platform's libbacktrace.

#include <stavex/UnwindBT.h>

#include <backtrace/Backtrace.h>

#include <memory>

void UnwindCurThreadBT(std::string& out) {
    out.clear();
    std::unique_ptr<Backtrace> backtrace(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    // Frame 0 would be this function; the caller wants its own stack.
    if (!backtrace || !backtrace->Unwind(1)) return;
    for (size_t i = 0; i < backtrace->NumFrames(); ++i) {
        out += backtrace->FormatFrameData(i);
        out += '\n';
    }
}
