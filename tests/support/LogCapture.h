#pragma once

// Log capture for tests. Linking tests/support/LogCapture.cpp into a test program replaces
// liblog's __android_log_print, __android_log_vprint and __android_log_write with recorders
// (the program's definitions take the place of the shared library's for every caller), and
// LogCaptureTest installs a recording unified logger as ULogger::sULogger.

#include <zorcam/ulog/ULog.h>

#include <gtest/gtest.h>

#include <mutex>
#include <tuple>

namespace zorcam_test {

using NSCam::Utils::ULog::DetailsType;
using NSCam::Utils::ULog::ULogger;

/// One entry written to the Android log.
struct AndroidLine { int prio; std::string tag, text; };

/// One call of ULogger::logText: text is the bytes up to the NUL or length, whichever comes
/// first; length is the argument as passed.
struct ULogLine {
    uint32_t moduleId; std::string tag; DetailsType type; std::string text; int64_t length;
};

/// What both sinks were given, under one lock.
struct Capture { std::mutex lock; std::vector<AndroidLine> android; std::vector<ULogLine> ulog; };
Capture& capture();
/// The recording unified logger.
ULogger* recordingLogger();

/// Strips the location suffix " (func){#line:file}" from an Android error line; the text is
/// returned unchanged when it has none.
std::string stripLocation(const std::string& text);

/// Fixture: saves the unified logger's switches and installed logger, installs the recorder
/// with everything let through (mode 0x3, level 6, the library's module bits), and restores
/// it all in TearDown.
class LogCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        mSaved = {ULogger::sMode, ULogger::sDetailsLevel, ULogger::sNormalDetailsMask,
                  ULogger::sULogger};
        ULogger::sULogger = recordingLogger();
        setULog(0x3, 6, 0x40007000);
        clearLogs();
    }
    void TearDown() override {
        setULog(std::get<0>(mSaved), std::get<1>(mSaved), std::get<2>(mSaved));
        ULogger::sULogger = std::get<3>(mSaved);
        clearLogs();
    }
    // Atomic stores, as the logger library changes them while other threads may be logging.
    static void setULog(uint32_t mode, uint32_t level, uint32_t mask) {
        __atomic_store_n(&ULogger::sMode, mode, __ATOMIC_RELAXED);
        __atomic_store_n(&ULogger::sDetailsLevel, level, __ATOMIC_RELAXED);
        __atomic_store_n(&ULogger::sNormalDetailsMask, mask, __ATOMIC_RELAXED);
    }
    template <typename Line>
    static std::vector<Line> locked(const std::vector<Line>& lines) {
        std::lock_guard<std::mutex> hold(capture().lock);
        return lines;
    }
    std::vector<AndroidLine> androidLines() { return locked(capture().android); }
    std::vector<ULogLine> ulogLines() { return locked(capture().ulog); }
    /// Android lines with the given tag only.
    std::vector<AndroidLine> androidLines(const std::string& tag) {
        auto lines = androidLines();
        auto other = [&tag](const AndroidLine& l) { return l.tag != tag; };
        lines.erase(std::remove_if(lines.begin(), lines.end(), other), lines.end());
        return lines;
    }
    void clearLogs() {
        std::lock_guard<std::mutex> hold(capture().lock);
        capture().android.clear(), capture().ulog.clear();
    }
    /// Exactly one Android line and exactly one unified line were written, with these values
    /// (an Android error line's location suffix left out). Clears the capture.
    void expectOnlyLine(int prio, DetailsType type, const std::string& tag,
                        const std::string& text) {
        const auto a = androidLines();
        const auto u = ulogLines();
        clearLogs();
        ASSERT_TRUE(a.size() == 1u && u.size() == 1u) << a.size() << "+" << u.size() << " lines";
        EXPECT_EQ(std::make_tuple(a[0].prio, a[0].tag,
                                  prio == 6 ? stripLocation(a[0].text) : a[0].text),
                  std::make_tuple(prio, tag, text));
        EXPECT_EQ(std::make_tuple(u[0].moduleId, u[0].type, u[0].tag, u[0].text),
                  std::make_tuple(0x40007001u, type, tag, text));
    }
    /// expectOnlyLine for an error line of the library's own tag.
    void expectError(const std::string& text) {
        expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils", text);
    }
    void expectNoLines() { EXPECT_TRUE(androidLines().empty() && ulogLines().empty()); }

private:
    std::tuple<uint32_t, uint32_t, uint32_t, ULogger*> mSaved;
};

}  // namespace zorcam_test
