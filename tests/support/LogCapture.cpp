#include "LogCapture.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>

namespace zorcam_test {

LogRecorder& LogRecorder::instance() {
    static LogRecorder* sRecorder = new LogRecorder();  // never destroyed: used at exit too
    return *sRecorder;
}

void LogRecorder::logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                          int64_t length) {
    const size_t n = length > 0 ? strnlen(text, static_cast<size_t>(length)) : 0;
    std::lock_guard<std::mutex> lock(mLock);
    mULog.push_back({moduleId, tag ? tag : "", type, std::string(text, n), length});
}

void LogRecorder::recordAndroid(int prio, const char* tag, const char* text) {
    std::lock_guard<std::mutex> lock(mLock);
    mAndroid.push_back({prio, tag ? tag : "", text ? text : ""});
}

std::vector<AndroidLine> LogRecorder::android() {
    std::lock_guard<std::mutex> lock(mLock);
    return mAndroid;
}

std::vector<ULogLine> LogRecorder::ulog() {
    std::lock_guard<std::mutex> lock(mLock);
    return mULog;
}

void LogRecorder::clear() {
    std::lock_guard<std::mutex> lock(mLock);
    mAndroid.clear();
    mULog.clear();
}

void LogCaptureTest::SetUp() {
    using NSCam::Utils::ULog::ULogger;
    mSavedMode = ULogger::sMode;
    mSavedLevel = ULogger::sDetailsLevel;
    mSavedMask = ULogger::sNormalDetailsMask;
    mSavedLogger = ULogger::sULogger;
    ULogger::sULogger = &LogRecorder::instance();
    setULog(0x3, 6, 0x40007000);
    clearLogs();
}

void LogCaptureTest::TearDown() {
    using NSCam::Utils::ULog::ULogger;
    ULogger::sMode = mSavedMode;
    ULogger::sDetailsLevel = mSavedLevel;
    ULogger::sNormalDetailsMask = mSavedMask;
    ULogger::sULogger = mSavedLogger;
    clearLogs();
}

void LogCaptureTest::setULog(uint32_t mode, uint32_t level, uint32_t mask) {
    using NSCam::Utils::ULog::ULogger;
    // Atomic stores, as the logger library changes them while other threads may be logging.
    __atomic_store_n(&ULogger::sMode, mode, __ATOMIC_RELAXED);
    __atomic_store_n(&ULogger::sDetailsLevel, level, __ATOMIC_RELAXED);
    __atomic_store_n(&ULogger::sNormalDetailsMask, mask, __ATOMIC_RELAXED);
}

std::vector<AndroidLine> LogCaptureTest::androidLines(const std::string& tag) {
    std::vector<AndroidLine> out;
    for (auto& l : androidLines())
        if (l.tag == tag) out.push_back(l);
    return out;
}

void LogCaptureTest::expectOnlyLine(int prio, DetailsType type, const std::string& tag,
                                    const std::string& text) {
    auto a = androidLines();
    auto u = ulogLines();
    clearLogs();
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(u.size(), 1u);
    EXPECT_EQ(a[0].prio, prio);
    EXPECT_EQ(a[0].tag, tag);
    EXPECT_EQ(prio == 6 ? stripLocation(a[0].text) : a[0].text, text);
    EXPECT_EQ(u[0].moduleId, 0x40007001u);
    EXPECT_EQ(u[0].type, type);
    EXPECT_EQ(u[0].tag, tag);
    EXPECT_EQ(u[0].text, text);
}

void LogCaptureTest::expectNoLines() {
    EXPECT_TRUE(androidLines().empty());
    EXPECT_TRUE(ulogLines().empty());
}

std::string withLocation(const std::string& text, const char* func, int line, const char* file) {
    return text + " (" + func + "){#" + std::to_string(line) + ":" + file + "}";
}

std::string stripLocation(const std::string& text) {
    // The function name may itself end in "()", as "operator()" does inside a lambda.
    static const std::regex kSuffix(R"( \((?:[^()]|\(\))*\)\{#\d+:[^{}]*\}$)");
    return std::regex_replace(text, kSuffix, "");
}

}  // namespace zorcam_test

// The program's own Android log: these take the place of liblog's functions for the library
// under test and for libutils' LogPrinter alike.
extern "C" {

int __android_log_write(int prio, const char* tag, const char* text) {
    zorcam_test::LogRecorder::instance().recordAndroid(prio, tag, text);
    return 1;
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    const int n = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) vsnprintf(text.data(), text.size() + 1, fmt, ap);
    zorcam_test::LogRecorder::instance().recordAndroid(prio, tag, text.c_str());
    return 1;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

}  // extern "C"
