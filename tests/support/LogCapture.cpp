#include "LogCapture.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>

namespace zorcam_test {

Capture& capture() {
    static Capture* sCapture = new Capture();  // never destroyed: used at exit too
    return *sCapture;
}

ULogger* recordingLogger() {
    struct Recorder : ULogger {
        void logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                     int64_t length) override {
            const size_t n = length > 0 ? strnlen(text, static_cast<size_t>(length)) : 0;
            std::lock_guard<std::mutex> hold(capture().lock);
            capture().ulog.push_back(
                    {moduleId, tag ? tag : "", type, std::string(text, n), length});
        }
    };
    static Recorder sRecorder;  // installed only between a test's SetUp and TearDown
    return &sRecorder;
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
    std::lock_guard<std::mutex> hold(zorcam_test::capture().lock);
    zorcam_test::capture().android.push_back({prio, tag ? tag : "", text ? text : ""});
    return 1;
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char* text = nullptr;
    const int r = __android_log_write(prio, tag, vasprintf(&text, fmt, ap) < 0 ? "" : text);
    free(text);
    return r;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

}  // extern "C"
