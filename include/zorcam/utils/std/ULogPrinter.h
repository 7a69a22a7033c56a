#pragma once

#include <zorcam/ulog/ULog.h>
#include <zorcam/utils/std/Export.h>

#include <utils/Printer.h>

#include <cstdint>

namespace NSCam {
namespace Utils {
namespace ULog {

/// A line printer that writes to the Android log and the unified logger under a fixed module
/// id, tag and details type, gated by the unified logger's switches like a unified-path
/// message (the level test applies to errors too). Used by one thread at a time.
class ZORCAM_EXPORT ULogPrinter : public android::Printer {
public:
    /// tag and prefix must outlive the printer (the Android printer keeps the pointers);
    /// flag is LogPrinter's ignoreBlankLines.
    ULogPrinter(unsigned int moduleId, const char* tag, DetailsType type,
                const char* prefix = nullptr, bool flag = false);
    ~ULogPrinter() override;

    /// Prints one line uncut.
    void printLine(const char* line) override;
    /// Formats one line (at most 1023 characters) and prints it.
    void printFormatLine(const char* format, ...) override __attribute__((format(printf, 2, 3)));

private:
    ZORCAM_HIDDEN bool pass() const;

    DetailsType mDetailsType;
    uint32_t mModuleId;
    char mTag[64];
    android::LogPrinter mLogPrinter;
};

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
