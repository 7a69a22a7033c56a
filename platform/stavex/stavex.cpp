// Host stand-in for the backtrace library, built on the platform's libbacktrace.

#include <stavex/UnwindBT.h>

#include <backtrace/Backtrace.h>

#include <dlfcn.h>

#include <memory>

namespace {

const void* moduleBase(uintptr_t pc) {
    Dl_info info{};
    return dladdr(reinterpret_cast<void*>(pc), &info) != 0 ? info.dli_fbase : nullptr;
}

}  // namespace

void UnwindCurThreadBT(std::string& out) {
    out.clear();
    std::unique_ptr<Backtrace> backtrace(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    if (!backtrace || !backtrace->Unwind(0)) return;

    // The innermost frames are libbacktrace's and this function's own; the caller wants its
    // stack to start with itself, so everything up to this library's frame is left out and the
    // rest renumbered from 0.
    const void* self = moduleBase(reinterpret_cast<uintptr_t>(&UnwindCurThreadBT));
    size_t first = 0;
    for (size_t i = 0; i < backtrace->NumFrames(); ++i) {
        if (moduleBase(backtrace->GetFrame(i)->pc) == self) {
            first = i + 1;
            break;
        }
    }
    for (size_t i = first; i < backtrace->NumFrames(); ++i) {
        backtrace_frame_data_t frame = *backtrace->GetFrame(i);
        frame.num = i - first;
        out += Backtrace::FormatFrameData(&frame);
        out += '\n';
    }
}
