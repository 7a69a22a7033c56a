#include "FuzzLog.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace zorcam_fuzz {

namespace {

struct Store {
    std::vector<LogLine> lines;  // the first `count` are live
    size_t count = 0;
};

Store& store() {
    static auto* sStore = new Store;  // never destroyed: libraries log from static destructors
    return *sStore;
}

}  // namespace

void record(int prio, const char* tag, const char* text) {
    Store& s = store();
    if (s.count == s.lines.size()) s.lines.emplace_back();
    LogLine& line = s.lines[s.count++];
    line.prio = prio;
    line.tag.assign(tag != nullptr ? tag : "");
    line.text.assign(text != nullptr ? text : "");
}

size_t logCount() {
    return store().count;
}

const LogLine& logLine(size_t index) {
    return store().lines[index];
}

void clearLog() {
    store().count = 0;
}

bool logContains(std::string_view needle) {
    const Store& s = store();
    for (size_t i = 0; i < s.count; ++i)
        if (s.lines[i].text.find(needle) != std::string::npos) return true;
    return false;
}

}  // namespace zorcam_fuzz

extern "C" {

int __android_log_write(int prio, const char* tag, const char* text) {
    zorcam_fuzz::record(prio, tag, text);
    return 1;
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char text[1024];
    vsnprintf(text, sizeof(text), fmt, ap);
    return __android_log_write(prio, tag, text);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

}  // extern "C"
