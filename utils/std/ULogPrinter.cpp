#include <zorcam/utils/std/ULogPrinter.h>

#include "LogMacros.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace NSCam {
namespace Utils {
namespace ULog {

namespace {

android_LogPriority priorityFor(DetailsType type) {
    switch (static_cast<uint32_t>(type)) {
        case 1: return ANDROID_LOG_ERROR;
        case 2: return ANDROID_LOG_WARN;
        case 3: return ANDROID_LOG_INFO;
        case 6: return ANDROID_LOG_VERBOSE;
        default: return ANDROID_LOG_DEBUG;  // 4, 5 and anything else
    }
}

}  // namespace

ULogPrinter::ULogPrinter(unsigned int moduleId, const char* tag, DetailsType type,
                         const char* prefix, bool flag)
    : mDetailsType(type),
      mModuleId(moduleId),
      mLogPrinter(tag, priorityFor(type), prefix, flag) {
    strncpy(mTag, tag != nullptr ? tag : "", sizeof(mTag));
    mTag[sizeof(mTag) - 1] = '\0';
}

ULogPrinter::~ULogPrinter() = default;

bool ULogPrinter::pass() const {
    if (loadSwitch(ULogger::sDetailsLevel) < static_cast<uint32_t>(mDetailsType)) return false;
    if (static_cast<int32_t>(mDetailsType) >= 3 && !moduleEnabled(mModuleId)) return false;
    return true;
}

void ULogPrinter::printLine(const char* line) {
    if (line == nullptr || !pass()) return;
    if (loadMode() & 0x1) mLogPrinter.printLine(line);
    if (loadMode() & 0xE)
        loadLogger()->logText(mModuleId, mTag, mDetailsType, line,
                                   static_cast<int64_t>(strlen(line)));
}

void ULogPrinter::printFormatLine(const char* format, ...) {
    if (format == nullptr || !pass()) return;
    char buffer[kMessageBufferSize];
    va_list ap;
    va_start(ap, format);
    const int64_t length = formatMessage(buffer, format, ap);
    va_end(ap);
    if (loadMode() & 0x1) mLogPrinter.printLine(buffer);
    if (loadMode() & 0xE)
        loadLogger()->logText(mModuleId, mTag, mDetailsType, buffer, length);
}

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
