#pragma once

/// \file
/// A line printer for the unified logger.

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
    /// A printer with fixed module id, tag and details type.
    /// \param moduleId the module id of every line.
    /// \param tag the log tag; must outlive the printer (the Android printer keeps it).
    /// \param type the details type of every line.
    /// \param prefix put before every line; may be null; must outlive the printer.
    /// \param flag LogPrinter's ignoreBlankLines.
    ULogPrinter(unsigned int moduleId, const char* tag, DetailsType type,
                const char* prefix = nullptr, bool flag = false);
    ~ULogPrinter() override;

    /// Prints one line uncut.
    /// \param line the text, NUL-terminated.
    void printLine(const char* line) override;
    /// Formats one line (at most 1023 characters) and prints it.
    /// \param format printf format, followed by its arguments.
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
