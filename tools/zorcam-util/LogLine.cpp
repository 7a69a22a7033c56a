#include "LogLine.h"

#include <cstdlib>
#include <cstring>

namespace zorcam_util {

namespace {

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kDay = 86400 * kSecond;

// A cursor over the line; every read checks the end.
struct Cursor {
    std::string_view s;
    size_t i = 0;

    bool done() const { return i >= s.size(); }
    char peek(size_t ahead = 0) const { return i + ahead < s.size() ? s[i + ahead] : '\0'; }
    bool eat(char c) {
        if (peek() != c) return false;
        ++i;
        return true;
    }
    bool eat(std::string_view text) {
        if (s.substr(i, text.size()) != text) return false;
        i += text.size();
        return true;
    }
    size_t spaces() {
        const size_t from = i;
        while (peek() == ' ') ++i;
        return i - from;
    }
    // Digits (at least one, at most maxDigits) as a number; false on none or on more.
    bool number(int64_t* out, size_t maxDigits = 18, size_t* digits = nullptr) {
        const size_t from = i;
        int64_t v = 0;
        while (peek() >= '0' && peek() <= '9') {
            if (i - from >= maxDigits) return false;
            v = v * 10 + (s[i] - '0');
            ++i;
        }
        if (digits != nullptr) *digits = i - from;
        *out = v;
        return i > from;
    }
    // A number of exactly n digits.
    bool fixed(size_t n, int64_t* out) {
        size_t got = 0;
        return number(out, n, &got) && got == n;
    }
};

bool isLevel(char c) {
    return c == 'V' || c == 'D' || c == 'I' || c == 'W' || c == 'E' || c == 'F' || c == 'A';
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// "HH:MM:SS" and, when fraction, ".fff", ".ffffff" or ".fffffffff".
bool clock(Cursor& c, bool fraction, int64_t* ns, int64_t* resolution) {
    int64_t h, m, s;
    if (!c.fixed(2, &h) || !c.eat(':') || !c.fixed(2, &m) || !c.eat(':') || !c.fixed(2, &s) ||
        h > 23 || m > 59 || s > 60) {
        return false;
    }
    *ns = ((h * 60 + m) * 60 + s) * kSecond;
    *resolution = kSecond;
    if (!fraction) return true;
    int64_t f;
    size_t digits = 0;
    if (!c.eat('.') || !c.number(&f, 9, &digits) || (digits != 3 && digits != 6 && digits != 9))
        return false;
    *resolution = digits == 3 ? 1000000 : digits == 6 ? 1000 : 1;
    *ns += f * *resolution;
    return true;
}

// A logcat time stamp: "[YYYY-]MM-DD HH:MM:SS.fff" or epoch "SSSSSSSSSS.fff".
bool stamp(Cursor& c, int64_t* ns, int64_t* resolution) {
    const size_t from = c.i;
    int64_t a;
    size_t digits = 0;
    if (!c.number(&a, 12, &digits)) return false;
    if (c.peek() == '.' && digits >= 5) {  // epoch seconds, up to the year 2255
        if (digits > 10 || a >= 9000000000) return false;
        int64_t f;
        size_t fd = 0;
        c.eat('.');
        if (!c.number(&f, 9, &fd) || (fd != 3 && fd != 6 && fd != 9)) return false;
        *resolution = fd == 3 ? 1000000 : fd == 6 ? 1000 : 1;
        *ns = a * kSecond + f * *resolution;
        return true;
    }
    int64_t year = 1970, month, day;
    if (digits == 4) {
        // Years a time in ns since 1970 can hold without overflow, and then some margin.
        year = a;
        if (year < 1970 || year > 2200 || !c.eat('-') || !c.fixed(2, &month)) return false;
    } else if (digits == 2) {
        month = a;
    } else {
        c.i = from;
        return false;
    }
    if (!c.eat('-') || !c.fixed(2, &day) || month < 1 || month > 12 || day < 1 || day > 31 ||
        c.spaces() == 0) {
        return false;
    }
    int64_t t;
    if (!clock(c, true, &t, resolution)) return false;
    *ns = daysFromCivil(year, month, day) * kDay + t;
    return true;
}

// "L/TAG( PID): " as the time and brief forms write it; the tag may hold '/' and '('.
bool levelTagPid(Cursor& c, LogEntry* e) {
    if (!isLevel(c.peek()) || c.peek(1) != '/') return false;
    e->level = c.peek();
    c.i += 2;
    const std::string_view rest = c.s.substr(c.i);
    const size_t close = rest.find("): ");
    const size_t closeAtEnd = rest.size() >= 2 && rest.substr(rest.size() - 2) == "):"
                                      ? rest.size() - 2
                                      : std::string_view::npos;
    const size_t end = close != std::string_view::npos ? close : closeAtEnd;
    if (end == std::string_view::npos) return false;
    const size_t open = rest.rfind('(', end);
    if (open == std::string_view::npos) return false;
    Cursor p{rest.substr(open + 1, end - open - 1)};
    p.spaces();
    int64_t pid;
    if (!p.number(&pid, 9) || !p.done()) return false;
    std::string_view tag = rest.substr(0, open);
    while (!tag.empty() && tag.back() == ' ') tag.remove_suffix(1);
    e->tag = tag;
    e->pid = static_cast<int>(pid);
    e->message = end + 3 <= rest.size() ? rest.substr(end + 3) : std::string_view();
    return true;
}

// "  PID   TID L TAG: message" of the threadtime form.
bool threadtimeRest(Cursor& c, LogEntry* e) {
    int64_t pid, tid;
    if (!c.number(&pid, 9) || c.spaces() == 0 || !c.number(&tid, 9) || c.spaces() == 0)
        return false;
    if (!isLevel(c.peek()) || c.peek(1) != ' ') return false;
    e->level = c.peek();
    c.i += 2;
    const std::string_view rest = c.s.substr(c.i);
    size_t colon = rest.find(": ");
    if (colon == std::string_view::npos) {
        if (rest.empty() || rest.back() != ':') return false;
        colon = rest.size() - 1;
    }
    std::string_view tag = rest.substr(0, colon);
    while (!tag.empty() && tag.back() == ' ') tag.remove_suffix(1);
    e->tag = tag;
    e->message = colon + 2 <= rest.size() ? rest.substr(colon + 2) : std::string_view();
    e->pid = static_cast<int>(pid);
    e->tid = static_cast<int>(tid);
    return true;
}

// "TAG L MM-DD HH:MM:SS  PID   TID message": the host's liblog on stderr.
bool hostLine(Cursor& c, LogEntry* e) {
    const size_t space = c.s.find(' ');
    if (space == 0 || space == std::string_view::npos) return false;
    e->tag = c.s.substr(0, space);
    c.i = space + 1;
    if (!isLevel(c.peek()) || c.peek(1) != ' ') return false;
    e->level = c.peek();
    c.i += 2;
    int64_t month, day, t, resolution, pid, tid;
    if (!c.fixed(2, &month) || !c.eat('-') || !c.fixed(2, &day) || !c.eat(' ') || month < 1 ||
        month > 12 || day < 1 || day > 31 || !clock(c, false, &t, &resolution) || c.spaces() == 0 ||
        !c.number(&pid, 9) || c.spaces() == 0 || !c.number(&tid, 9) || !c.eat(' ')) {
        return false;
    }
    e->timeNs = daysFromCivil(1970, month, day) * kDay + t;
    e->resolutionNs = resolution;
    e->pid = static_cast<int>(pid);
    e->tid = static_cast<int>(tid);
    e->message = c.s.substr(c.i);
    return true;
}

}  // namespace

bool parseLogLine(std::string_view line, LogEntry* e) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    *e = LogEntry();
    Cursor c{line};
    int64_t ns, resolution;
    if (stamp(c, &ns, &resolution)) {
        e->timeNs = ns;
        e->resolutionNs = resolution;
        if (c.spaces() == 0) return false;
        if (c.peek() >= '0' && c.peek() <= '9') return threadtimeRest(c, e);
        return levelTagPid(c, e);
    }
    c.i = 0;
    if (levelTagPid(c, e)) return true;
    *e = LogEntry();
    c.i = 0;
    return hostLine(c, e);
}

bool parseTime(std::string_view text, int64_t* ns) {
    std::string withFraction(text);
    if (withFraction.find('.') == std::string::npos) withFraction += ".000";
    Cursor c{withFraction};
    int64_t resolution;
    return stamp(c, ns, &resolution) && c.done();
}

bool mayBeLibraryLine(std::string_view line) {
    return memmem(line.data(), line.size(), "ZorCam/", 7) != nullptr ||
           memmem(line.data(), line.size(), "-->now: ", 8) != nullptr;
}

namespace {

// The figures a line may carry, beyond which it is taken as garbled: times up to about three
// years of uptime, delays and intervals up to a day, so that no sum of them overflows.
constexpr int64_t kMaxTime = 100000000000000000;  // 1e17 ns
constexpr int64_t kMaxSpan = 86400000000000;      // a day in ns

bool within(int64_t v, int64_t lo, int64_t hi) {
    return v >= lo && v <= hi;
}

// "key(number)" lists of the pacing lines: each key in turn, separated by commas.
bool keyedNumbers(std::string_view text, const char* const* keys, size_t count, int64_t* out) {
    Cursor c{text};
    for (size_t k = 0; k < count; ++k) {
        if (k > 0 && !c.eat(',')) return false;
        if (!c.eat(keys[k]) || !c.eat('(')) return false;
        const bool negative = c.eat('-');
        if (!c.number(&out[k])) return false;
        if (negative) out[k] = -out[k];
        if (!c.eat(')')) return false;
    }
    return true;
}

// "[NAME]<marker>...": the name between the first "[" and the last occurrence of marker.
bool nameBefore(std::string_view text, std::string_view marker, std::string_view* name,
                std::string_view* rest) {
    if (text.empty() || text.front() != '[') return false;
    const size_t at = text.rfind(marker);
    if (at == std::string_view::npos || at < 1) return false;
    *name = text.substr(1, at - 1);
    *rest = text.substr(at + marker.size());
    return true;
}

LibraryLine readFrameController(std::string_view m, LibraryEvent* ev) {
    constexpr std::string_view kHead = "[bufferControl][";
    if (m.substr(0, kHead.size()) != kHead) return LibraryLine::kRead;
    const std::string_view body = m.substr(kHead.size() - 1);
    std::string_view rest;
    static const char* const kOff[] = {"ct",  "cft", "cddt", "oddt", "nddt", "max",
                                       "min", "fi",  "ti",   "stc",  "st"};
    static const char* const kOn[] = {"ct", "cft", "cddt", "oddt", "fi", "ti"};
    if (nameBefore(body, "] off:", &ev->name, &rest)) {
        ev->kind = LibraryEvent::kPaced;
        // The last figure reads "st(N us)".
        if (rest.size() < 4 || rest.substr(rest.size() - 4) != " us)")
            return LibraryLine::kUnreadable;
        const size_t st = rest.rfind(",st(");
        if (st == std::string_view::npos) return LibraryLine::kUnreadable;
        Cursor sleep{rest.substr(st + 4, rest.size() - 4 - st - 4)};
        const bool negative = sleep.eat('-');
        if (!sleep.number(&ev->values[10]) || !sleep.done()) return LibraryLine::kUnreadable;
        if (negative) ev->values[10] = -ev->values[10];
        const int64_t* v = ev->values;
        bool ok = keyedNumbers(rest.substr(0, st), kOff, 10, ev->values) &&
                  within(v[0], 0, kMaxTime) &&
                  within(v[1], -kMaxTime, kMaxTime) && within(v[9], 0, 1) &&
                  within(v[10], 0, kMaxSpan / 1000);
        for (int k = 2; k <= 8; ++k) ok = ok && within(v[k], -kMaxSpan, kMaxSpan);
        return ok ? LibraryLine::kRead : LibraryLine::kUnreadable;
    }
    if (nameBefore(body, "]  on:", &ev->name, &rest)) {
        ev->kind = LibraryEvent::kPacedInReset;
        const int64_t* v = ev->values;
        bool ok = keyedNumbers(rest, kOn, 6, ev->values) && within(v[0], 0, kMaxTime) &&
                  within(v[1], -kMaxTime, kMaxTime);
        for (int k = 2; k <= 5; ++k) ok = ok && within(v[k], -kMaxSpan, kMaxSpan);
        return ok ? LibraryLine::kRead : LibraryLine::kUnreadable;
    }
    static const std::pair<std::string_view, LibraryEvent::Kind> kTransitions[] = {
            {"] start to adj frame delay", LibraryEvent::kAdjustStart},
            {"] stop adj frame delay", LibraryEvent::kAdjustStop},
            {"] start to reset frame delay", LibraryEvent::kResetStart},
            {"] stop reset frame delay", LibraryEvent::kResetStop}};
    for (const auto& [marker, kind] : kTransitions) {
        if (body.size() >= marker.size() && body.substr(body.size() - marker.size()) == marker &&
            nameBefore(body, marker, &ev->name, &rest)) {
            ev->kind = kind;
            return LibraryLine::kRead;
        }
    }
    if (nameBefore(body, "] framecontrol stage(", &ev->name, &rest)) {
        ev->kind = LibraryEvent::kMeasuring;
        Cursor c{rest};
        return c.number(&ev->values[0], 9) && c.eat(')') && c.done() ? LibraryLine::kRead
                                                                     : LibraryLine::kUnreadable;
    }
    if (nameBefore(body, "] FirstFrameDelay(", &ev->name, &rest)) {
        ev->kind = LibraryEvent::kFirstFrameDelay;
        Cursor c{rest};
        const bool negative = c.eat('-');
        const bool ok = c.number(&ev->values[0], 9) && c.eat(")ms") && c.done();
        if (negative) ev->values[0] = -ev->values[0];
        return ok ? LibraryLine::kRead : LibraryLine::kUnreadable;
    }
    return LibraryLine::kRead;
}

LibraryLine readUtils(std::string_view m, LibraryEvent* ev) {
    std::string_view rest;
    if (m.substr(0, 13) == "{CamProfile}[") {
        // "{CamProfile}[C::F] NOTE: (K-th) ===> [( overtime > X ms) ][start-->now: T ms][
        // [last-->now: S ms]]"
        ev->kind = LibraryEvent::kCamProfile;
        const std::string_view body = m.substr(12);
        const size_t close = body.find("] ");
        const size_t th = body.rfind("-th) ===> ");
        if (close == std::string_view::npos || th == std::string_view::npos || th < close)
            return LibraryLine::kUnreadable;
        ev->name = body.substr(1, close - 1);
        const size_t open = body.rfind(": (", th);
        if (open == std::string_view::npos || open < close + 2) return LibraryLine::kUnreadable;
        ev->note = body.substr(close + 2, open - close - 2);
        Cursor c{body.substr(open + 3)};
        int64_t* v = ev->values;
        if (!c.number(&v[0], 9) || !c.eat("-th) ===> ")) return LibraryLine::kUnreadable;
        v[3] = -1;
        if (c.eat("(overtime > ") || c.eat("( overtime > ")) {
            if (!c.number(&v[3], 9) || !c.eat(" ms) ")) return LibraryLine::kUnreadable;
        }
        auto signedNumber = [&c](int64_t* out) {
            const bool negative = c.eat('-');
            if (!c.number(out, 12)) return false;
            if (negative) *out = -*out;
            return true;
        };
        if (!c.eat("[start-->now: ") || !signedNumber(&v[1]) || !c.eat(" ms]") ||
            !within(v[1], -kMaxSpan / 1000000, kMaxSpan / 1000000)) {
            return LibraryLine::kUnreadable;
        }
        v[2] = v[1];
        if (c.eat(" [last-->now: ") && (!signedNumber(&v[2]) || !c.eat(" ms]") ||
                                        !within(v[2], -kMaxSpan / 1000000, kMaxSpan / 1000000))) {
            return LibraryLine::kUnreadable;
        }
        return c.done() ? LibraryLine::kRead : LibraryLine::kUnreadable;
    }
    if (nameBefore(m, "] fps: ", &ev->name, &rest)) {
        // "[NAME] fps: COUNT / ELAPSED ns = RATE"
        ev->kind = LibraryEvent::kFps;
        Cursor c{rest};
        const bool negative = c.eat('-');
        if (!c.number(&ev->values[0], 10) || !c.eat(" / ")) return LibraryLine::kUnreadable;
        if (negative) ev->values[0] = -ev->values[0];
        const bool negativeSpan = c.eat('-');
        if (!c.number(&ev->values[1], 17) || !c.eat(" ns = ")) return LibraryLine::kUnreadable;
        if (negativeSpan) ev->values[1] = -ev->values[1];
        const std::string number(c.s.substr(c.i));
        char* end = nullptr;
        ev->rate = strtod(number.c_str(), &end);
        return !number.empty() && end == number.c_str() + number.size() ? LibraryLine::kRead
                                                                        : LibraryLine::kUnreadable;
    }
    return LibraryLine::kRead;
}

// "PREFIX@N NOTE[ (overtime > X ns)] [start-->now: T us][[last-->now: S us]]"
LibraryLine readCameraProfile(std::string_view m, LibraryEvent* ev) {
    constexpr std::string_view kStart = " [start-->now: ";
    const size_t start = m.rfind(kStart);
    if (start == std::string_view::npos) return LibraryLine::kNotLibrary;
    size_t at = std::string_view::npos;
    for (size_t i = m.find('@'); i != std::string_view::npos && i < start; i = m.find('@', i + 1)) {
        size_t j = i + 1;
        while (j < m.size() && m[j] >= '0' && m[j] <= '9') ++j;
        if (j > i + 1 && j < m.size() && m[j] == ' ') {
            at = i;
            break;
        }
    }
    if (at == std::string_view::npos) return LibraryLine::kNotLibrary;
    ev->kind = LibraryEvent::kCameraProfile;
    ev->name = m.substr(0, at);
    Cursor c{m.substr(at + 1)};
    int64_t* v = ev->values;
    if (!c.number(&v[0], 9) || !c.eat(' ')) return LibraryLine::kUnreadable;
    std::string_view note = m.substr(at + 1 + c.i, start - at - 1 - c.i);
    v[3] = -1;
    constexpr std::string_view kOver = " (overtime > ";
    const size_t over = note.rfind(kOver);
    if (over != std::string_view::npos && note.size() > 4 &&
        note.substr(note.size() - 4) == " ns)") {
        Cursor o{note.substr(over + kOver.size(), note.size() - 4 - over - kOver.size())};
        const bool negative = o.eat('-');
        if (!o.number(&v[3]) || !o.done()) return LibraryLine::kUnreadable;
        if (negative) v[3] = -v[3];
        note = note.substr(0, over);
    }
    ev->note = note;
    Cursor t{m.substr(start + kStart.size())};
    auto signedNumber = [&t](int64_t* out) {
        const bool negative = t.eat('-');
        if (!t.number(out)) return false;
        if (negative) *out = -*out;
        return true;
    };
    if (!signedNumber(&v[1]) || !t.eat(" us]") || !within(v[1], -kMaxSpan / 1000, kMaxSpan / 1000))
        return LibraryLine::kUnreadable;
    v[2] = v[1];
    if (t.eat("[last-->now: ") && (!signedNumber(&v[2]) || !t.eat(" us]") ||
                                   !within(v[2], -kMaxSpan / 1000, kMaxSpan / 1000))) {
        return LibraryLine::kUnreadable;
    }
    return t.done() ? LibraryLine::kRead : LibraryLine::kUnreadable;
}

}  // namespace

LibraryLine readLibraryLine(const LogEntry& e, LibraryEvent* ev) {
    *ev = LibraryEvent();
    if (e.tag.substr(0, 7) != "ZorCam/") return readCameraProfile(e.message, ev);
    if (e.tag == "ZorCam/FrameController") return readFrameController(e.message, ev);
    if (e.tag == "ZorCam/Utils") {
        const LibraryLine read = readUtils(e.message, ev);
        if (read != LibraryLine::kRead || ev->kind != LibraryEvent::kOther) return read;
    }
    // A CameraProfile may write under a library tag too.
    const LibraryLine profile = readCameraProfile(e.message, ev);
    if (profile != LibraryLine::kNotLibrary) return profile;
    ev->kind = LibraryEvent::kOther;
    return LibraryLine::kRead;
}

}  // namespace zorcam_util
