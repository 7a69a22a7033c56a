// Host stand-in for the backtrace library, built on the platform's libbacktrace.

#include <stavex/UnwindBT.h>

#include <backtrace/Backtrace.h>

#include <dlfcn.h>
#include <execinfo.h>

#include <memory>
#include <vector>

namespace {

// Return addresses point after the call; this many bytes back lands inside it, as libbacktrace
// reports the frames it unwinds itself.
#if defined(__aarch64__)
constexpr uintptr_t kCallAdjustment = 4;
#else
constexpr uintptr_t kCallAdjustment = 1;
#endif

const void* moduleBase(uintptr_t pc) {
    Dl_info info{};
    return dladdr(reinterpret_cast<void*>(pc), &info) != 0 ? info.dli_fbase : nullptr;
}

// The frames of the stack from libbacktrace's own unwinder.
std::vector<backtrace_frame_data_t> framesOf(Backtrace& backtrace) {
    std::vector<backtrace_frame_data_t> frames;
    for (size_t i = 0; i < backtrace.NumFrames(); ++i) frames.push_back(*backtrace.GetFrame(i));
    return frames;
}

// The frames found by the C library's unwinder (libgcc's, from the unwind tables), named by
// libbacktrace from the files. libbacktrace reads the stack through process_vm_readv, which an
// emulator such as qemu-user may lack; its own unwind then stops after its first frame.
std::vector<backtrace_frame_data_t> framesFromUnwindTables(Backtrace& backtrace) {
    void* pcs[MAX_BACKTRACE_FRAMES];
    const int n = ::backtrace(pcs, MAX_BACKTRACE_FRAMES);
    std::vector<backtrace_frame_data_t> frames;
    for (int i = 0; i < n; ++i) {
        backtrace_frame_data_t frame{};
        frame.pc = reinterpret_cast<uintptr_t>(pcs[i]) - kCallAdjustment;
        backtrace.FillInMap(frame.pc, &frame.map);
        frame.func_name = backtrace.GetFunctionName(frame.pc, &frame.func_offset, &frame.map);
        frame.rel_pc = frame.map.start <= frame.pc
                               ? frame.pc - frame.map.start + frame.map.offset + frame.map.load_bias
                               : frame.pc;
        frames.push_back(frame);
    }
    return frames;
}

// The index just past this library's innermost run of frames, or 0 when none is in frames.
size_t callerIndex(const std::vector<backtrace_frame_data_t>& frames) {
    const void* self = moduleBase(reinterpret_cast<uintptr_t>(&UnwindCurThreadBT));
    size_t i = 0;
    while (i < frames.size() && moduleBase(frames[i].pc) != self) ++i;
    if (i == frames.size()) return 0;
    while (i < frames.size() && moduleBase(frames[i].pc) == self) ++i;
    return i;
}

}  // namespace

void UnwindCurThreadBT(std::string& out) {
    out.clear();
    std::unique_ptr<Backtrace> backtrace(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    if (!backtrace || !backtrace->Unwind(0)) return;

    // The innermost frames are the unwinder's and this function's own; the caller wants its
    // stack to start with itself, so everything up to this library's frame is left out and the
    // rest renumbered from 0. When libbacktrace's unwind does not reach this library's frame,
    // the unwind tables are walked instead.
    std::vector<backtrace_frame_data_t> frames = framesOf(*backtrace);
    size_t first = callerIndex(frames);
    if (first == 0) {
        frames = framesFromUnwindTables(*backtrace);
        first = callerIndex(frames);
    }
    for (size_t i = first; i < frames.size(); ++i) {
        frames[i].num = i - first;
        out += Backtrace::FormatFrameData(&frames[i]);
        out += '\n';
    }
}
