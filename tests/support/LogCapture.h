#pragma once

// Log capture for tests. Linking tests/support/LogCapture.cpp into a test program replaces
// liblog's __android_log_print, __android_log_vprint and __android_log_write with recorders
// (the program's definitions take the place of the shared library's for every caller), and
// LogCaptureTest installs a recording unified logger as ULogger::sULogger.

#include <zorcam/ulog/ULog.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace zorcam_test {

using NSCam::Utils::ULog::DetailsType;

/// One entry written to the Android log.
struct AndroidLine {
    int prio;
    std::string tag;
    std::string text;
};

/// One call of ULogger::logText.
struct ULogLine {
    uint32_t moduleId;
    std::string tag;
    DetailsType type;
    std::string text;   // the bytes up to the NUL or length, whichever comes first
    int64_t length;     // the length argument as passed
};

/// Records both sinks. Thread-safe.
class LogRecorder : public NSCam::Utils::ULog::ULogger {
public:
    static LogRecorder& instance();

    void logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                 int64_t length) override;
    void recordAndroid(int prio, const char* tag, const char* text);

    std::vector<AndroidLine> android();
    std::vector<ULogLine> ulog();
    void clear();

private:
    std::mutex mLock;
    std::vector<AndroidLine> mAndroid;
    std::vector<ULogLine> mULog;
};

/// Fixture: saves the unified logger's switches and installed logger, installs the recorder
/// with everything let through (mode 0x3, level 6, the library's module bits), and restores
/// it all in TearDown.
class LogCaptureTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static void setULog(uint32_t mode, uint32_t level, uint32_t mask);

    std::vector<AndroidLine> androidLines() { return LogRecorder::instance().android(); }
    std::vector<ULogLine> ulogLines() { return LogRecorder::instance().ulog(); }
    /// Android lines with the given tag only.
    std::vector<AndroidLine> androidLines(const std::string& tag);
    void clearLogs() { LogRecorder::instance().clear(); }

    /// Exactly one Android line and exactly one unified line were written, with these values.
    /// Clears the capture.
    void expectOnlyLine(int prio, DetailsType type, const std::string& tag,
                        const std::string& text);
    /// expectOnlyLine for an error line of the library's own tag.
    void expectError(const std::string& text) {
        expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils", text);
    }
    void expectNoLines();

private:
    uint32_t mSavedMode = 0;
    uint32_t mSavedLevel = 0;
    uint32_t mSavedMask = 0;
    NSCam::Utils::ULog::ULogger* mSavedLogger = nullptr;
};

/// Expands an error line's location suffix as the front end writes it.
std::string withLocation(const std::string& text, const char* func, int line, const char* file);

/// Strips the location suffix " (func){#line:file}" from an Android error line; the text is
/// returned unchanged when it has none.
std::string stripLocation(const std::string& text);

}  // namespace zorcam_test
