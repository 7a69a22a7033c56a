// zorcam-util report: the demo's kind of report made from a device's log capture (logcat text,
// a bug report, or the host's liblog lines), read as a stream: the frame controllers' pacing,
// the frame-rate meters, the profiles' checkpoints and the library's warnings and errors, kept
// apart by process, thread and name.

#include "LogReport.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Args.h"
#include "Command.h"
#include "LogLine.h"
#include "ReportPage.h"
#include "Stats.h"
#include "Svg.h"

namespace zorcam_util {

namespace {

std::string fmt(const char* format, double v) {
    char text[64];
    snprintf(text, sizeof(text), format, v);
    return text;
}

std::string ms(double ns) {
    return std::isfinite(ns) ? fmt("%.3f", ns / 1e6) : "-";
}

std::string threadName(const Thread& t) {
    return t.tid >= 0 ? "pid " + std::to_string(t.pid) + " tid " + std::to_string(t.tid)
                      : "pid " + std::to_string(t.pid);
}

struct StreamFigures {
    size_t controlled = 0, paced = 0, sleeps = 0;
    double fps = NAN, delayP50 = NAN, delayP99 = NAN, delayMax = NAN, target = NAN;
    double sleptMs = 0, intervalP50 = NAN;
};

StreamFigures figures(const Stream& s) {
    StreamFigures f;
    f.paced = s.frames.size();
    f.controlled = f.paced + s.measuring;
    std::vector<double> delays, targets, intervals;
    for (const PacedFrame& p : s.frames) {
        delays.push_back(static_cast<double>(p.delay));
        targets.push_back(static_cast<double>(p.target));
        if (p.interval > 0) intervals.push_back(static_cast<double>(p.interval));
        if (p.sleepUs > 0) {
            f.sleeps++;
            f.sleptMs += p.sleepUs / 1e3;
        }
    }
    std::sort(delays.begin(), delays.end());
    std::sort(targets.begin(), targets.end());
    std::sort(intervals.begin(), intervals.end());
    f.delayP50 = percentile(delays, 50);
    f.delayP99 = percentile(delays, 99);
    f.delayMax = delays.empty() ? NAN : delays.back();
    f.target = percentile(targets, 50);
    f.intervalP50 = percentile(intervals, 50);
    // The rate the frames left at: each is released when its sleep ends, at ct + sleep.
    if (s.frames.size() > 1) {
        int64_t lo = INT64_MAX, hi = INT64_MIN;
        for (const PacedFrame& p : s.frames) {
            lo = std::min(lo, p.ct + p.sleepUs * 1000);
            hi = std::max(hi, p.ct + p.sleepUs * 1000);
        }
        if (hi > lo) f.fps = (s.frames.size() - 1) * 1e9 / static_cast<double>(hi - lo);
    }
    return f;
}

// Seconds of a stream's own clock from its first paced frame.
std::vector<double> streamSeconds(const Stream& s) {
    std::vector<double> x;
    const int64_t t0 = s.frames.empty() ? 0 : s.frames.front().ct;
    for (const PacedFrame& p : s.frames) x.push_back((p.ct - t0) / 1e9);
    return x;
}

// The offset from a stream's monotonic clock to the capture's clock: a pacing line is written
// as its frame's sleep ends, so capture time minus (ct + sleep) is the offset plus a little,
// minus up to the capture's resolution; the largest such difference is the closest.
int64_t clockOffset(const Stream& s) {
    int64_t best = INT64_MIN;
    for (const PacedFrame& p : s.frames)
        if (p.at >= 0) best = std::max(best, p.at - p.ct - p.sleepUs * 1000);
    return best == INT64_MIN ? 0 : best;
}

}  // namespace

bool writeLogReport(const LogReport& r, const std::string& outDir, const std::string& sources,
                    std::vector<std::string>* files, std::string* error) {
    namespace fs = std::filesystem;
    const fs::path dir(outDir);
    const int64_t t0 = r.firstNs == INT64_MAX ? 0 : r.firstNs;
    auto us = [t0](int64_t captureNs) { return captureNs < 0 ? 0.0 : (captureNs - t0) / 1e3; };
    auto keep = [&](const std::string& name, const std::string& text) {
        if (!writeText((dir / name).string(), text, error)) return false;
        files->push_back(name);
        return true;
    };

    // Charts.
    std::vector<std::pair<std::string, std::string>> charts;
    static const char* const kColours[] = {"steelblue", "darkorange", "seagreen",
                                           "crimson",   "purple",     "saddlebrown"};
    int n = 0;
    for (const auto& [key, s] : r.streams) {
        if (s.frames.empty()) continue;
        const std::string label = key.second + " (" + threadName(key.first) + ")";
        const std::vector<double> x = streamSeconds(s);
        SvgLine delay{"display delay", x, {}, "steelblue"}, target{"target", x, {}, "gray", true},
                adjust{"adjust from", x, {}, "darkorange", true},
                reset{"reset from", x, {}, "crimson", true}, sleep{"sleep", x, {}, "seagreen"};
        std::vector<double> intervals;
        for (const PacedFrame& p : s.frames) {
            delay.y.push_back(p.delay / 1e6);
            target.y.push_back(p.target / 1e6);
            adjust.y.push_back(p.inReset ? NAN : p.adjustMax / 1e6);
            reset.y.push_back(p.inReset ? NAN : p.reset / 1e6);
            sleep.y.push_back(p.sleepUs / 1e3);
            if (p.interval > 0) intervals.push_back(p.interval / 1e6);
        }
        std::vector<double> sorted = intervals;
        std::sort(sorted.begin(), sorted.end());
        const double centre = sorted.empty() ? 0 : percentile(sorted, 50);
        const std::string suffix = std::to_string(n++);
        charts.emplace_back(
                "display_delay_" + suffix + ".svg", svgDocument(1, [&](std::ostream& o) {
                    svgLines(o, 0, label + ": display delay (ms) per frame over the stream (s)",
                             {delay, target, adjust, reset});
                }));
        charts.emplace_back("frame_intervals_" + suffix + ".svg",
                            svgDocument(1, [&](std::ostream& o) {
                                svgHistogram(o, 0, label + ": frame intervals (ms)", intervals,
                                             centre, 0.25, 8);
                            }));
        charts.emplace_back("sleep_" + suffix + ".svg", svgDocument(1, [&](std::ostream& o) {
                                svgLines(o, 0, label + ": sleep (ms) per frame over the stream (s)",
                                         {sleep});
                            }));
    }
    if (!r.meters.empty()) {
        std::vector<SvgLine> lines;
        int c = 0;
        for (const auto& [key, samples] : r.meters) {
            SvgLine l{key.second + " (" + threadName(key.first) + ")", {}, {}, kColours[c++ % 6]};
            double elapsed = 0;
            for (const MeterSample& m : samples) {
                // Where the capture has no time stamps, the meters' own periods make the axis.
                elapsed += m.elapsedNs / 1e9;
                l.x.push_back(m.at >= 0 ? (m.at - t0) / 1e9 : elapsed);
                l.y.push_back(m.rate);
            }
            lines.push_back(std::move(l));
        }
        charts.emplace_back("fps.svg", svgDocument(1, [&](std::ostream& o) {
                                svgLines(o, 0, "frame-rate meters: fps over the capture (s)",
                                         lines);
                            }));
    }
    for (const auto& [name, text] : charts)
        if (!keep(name, text)) return false;

    // The trace: one track per thread, counters per stream and meter.
    Trace trace((dir / "trace.json").string());
    std::set<int> pids;
    for (const Thread& t : r.threads) {
        if (pids.insert(t.pid).second) trace.processName(t.pid, "pid " + std::to_string(t.pid));
        std::string name = threadName(t);
        std::string what;
        for (const auto& [key, s] : r.streams)
            if (key.first == t) what += (what.empty() ? ": " : ", ") + key.second;
        for (const auto& [key, s] : r.meters)
            if (key.first == t) what += (what.empty() ? ": " : ", ") + key.second;
        for (const auto& [key, s] : r.profiles)
            if (key.first == t) what += (what.empty() ? ": " : ", ") + key.second;
        trace.threadName(t.pid, t.tid, name + what);
    }
    for (const auto& [key, s] : r.streams) {
        const int64_t offset = clockOffset(s);
        const Thread& t = key.first;
        for (const PacedFrame& p : s.frames) {
            const double at = us(p.ct + offset);
            trace.counter(t.pid, "display delay ms [" + key.second + "]", at, p.delay / 1e6);
            trace.counter(t.pid, "sleep ms [" + key.second + "]", at, p.sleepUs / 1e3);
            if (p.sleepUs > 0)
                trace.slice(t.pid, t.tid, "sleep", key.second, at, static_cast<double>(p.sleepUs),
                            {{"cft", p.cft}, {"cddt", p.delay}});
        }
        for (const auto& [at, frame] : s.adjustStarts)
            trace.instant(t.pid, t.tid, "adjust starts [" + key.second + "]", us(at));
        for (const auto& [at, frame] : s.resetStarts)
            trace.instant(t.pid, t.tid, "reset starts [" + key.second + "]", us(at));
    }
    for (const auto& [key, samples] : r.meters)
        for (const MeterSample& m : samples)
            trace.counter(key.first.pid, "fps [" + key.second + "]", us(m.at), m.rate);
    for (const auto& [key, p] : r.profiles)
        for (const ProfileStep& step : p.steps)
            trace.slice(key.first.pid, key.first.tid, step.note, key.second,
                        us(step.at) - step.stepNs / 1e3, step.stepNs / 1e3);
    for (const Instant& i : r.instants) trace.instant(i.who.pid, i.who.tid, i.text, us(i.at));
    if (!trace.finish(error)) return false;
    files->push_back("trace.json");

    // The page.
    ReportPage page("zorcam-util report");
    page.paragraph("From " + sources + ": " + std::to_string(r.lines) + " lines, " +
                   std::to_string(r.libraryLines) + " of them the library's, from " +
                   std::to_string(r.threads.size()) + " threads.");
    page.paragraph(r.resolutionNs > 0
                           ? "Time stamps of the capture resolve " +
                                     (r.resolutionNs >= 1000000000 ? std::string("1 s")
                                      : r.resolutionNs >= 1000000  ? std::string("1 ms")
                                                                   : std::string("1 us or less")) +
                                     "; pacing figures use the library's own nanosecond times."
                           : "The capture has no time stamps; pacing figures use the library's "
                             "own nanosecond times.");
    if (r.unreadableCount > 0) {
        std::string where;
        for (const std::string& u : r.unreadable) where += (where.empty() ? "" : ", ") + u;
        page.raw("<p class=\"bad\">" +
                 xmlEscape(std::to_string(r.unreadableCount) +
                           " library lines could not be read (first: " + where + ").") +
                 "</p>\n");
    }
    if (r.outOfOrder > 0)
        page.paragraph(std::to_string(r.outOfOrder) + " library lines came out of time order.");
    page.heading("Frame controllers");
    std::vector<std::vector<std::string>> rows;
    for (const auto& [key, s] : r.streams) {
        const StreamFigures f = figures(s);
        std::string adjust = std::to_string(s.adjustStarts.size());
        for (size_t i = 0; i < s.adjustStarts.size() && i < 3; ++i)
            adjust += (i == 0 ? " (" : ", ") + fmt("%.3f s", us(s.adjustStarts[i].first) / 1e6);
        if (!s.adjustStarts.empty()) adjust += s.adjustStarts.size() > 3 ? ", ...)" : ")";
        std::string reset = std::to_string(s.resetStarts.size());
        for (size_t i = 0; i < s.resetStarts.size() && i < 3; ++i)
            reset += (i == 0 ? " (" : ", ") + fmt("%.3f s", us(s.resetStarts[i].first) / 1e6);
        if (!s.resetStarts.empty()) reset += s.resetStarts.size() > 3 ? ", ...)" : ")";
        rows.push_back(
                {key.second + " (" + threadName(key.first) + ")", std::to_string(f.controlled),
                 std::to_string(f.paced), fmt("%.3f", f.fps), ms(f.intervalP50), ms(f.delayP50),
                 ms(f.delayP99), ms(f.delayMax), ms(f.target),
                 std::to_string(f.sleeps) + " (" + fmt("%.1f", f.sleptMs) + " ms)", adjust, reset,
                 s.firstFrameDelayMs >= 0 ? std::to_string(s.firstFrameDelayMs) : "-"});
    }
    page.table({"stream", "frames", "paced", "fps (release times)", "interval p50 ms", "delay p50 ms",
                "delay p99 ms", "delay max ms", "target ms", "sleeps", "adjust episodes (start)",
                "reset episodes (start)", "first-frame delay ms"},
               rows);
    page.heading("Frame-rate meters");
    rows.clear();
    for (const auto& [key, samples] : r.meters) {
        double sum = 0;
        for (const MeterSample& m : samples) sum += m.rate;
        rows.push_back({key.second + " (" + threadName(key.first) + ")",
                        std::to_string(samples.size()), fmt("%.3f", sum / samples.size()),
                        fmt("%.3f", samples.back().rate)});
    }
    page.table({"meter", "lines", "mean fps", "last fps"}, rows);
    page.heading("Profiles");
    rows.clear();
    for (const auto& [key, p] : r.profiles) {
        for (const auto& [note, steps] : p.checkpoints) {
            std::vector<double> sorted = steps;
            std::sort(sorted.begin(), sorted.end());
            rows.push_back({key.second + ": " + note, std::to_string(steps.size()),
                            ms(percentile(sorted, 50)), ms(percentile(sorted, 99)),
                            ms(sorted.back())});
        }
    }
    page.table({"profile: checkpoint", "count", "p50 step ms", "p99 step ms", "max step ms"}, rows);
    page.heading("Warnings and errors");
    rows.clear();
    for (const auto& [tag, p] : r.problems) {
        rows.push_back({tag, std::to_string(p.warnings), std::to_string(p.errors),
                        p.first == INT64_MAX ? "-" : fmt("%.3f s", us(p.first) / 1e6),
                        p.last == INT64_MIN ? "-" : fmt("%.3f s", us(p.last) / 1e6)});
    }
    page.table({"tag", "warnings", "errors", "first seen", "last seen"}, rows);
    page.heading("Pictures");
    for (const auto& [name, text] : charts) page.image(name, "image/svg+xml", text);
    page.paragraph("Trace of every thread: trace.json (Perfetto UI).");
    return keep("index.html", page.html());
}

void printLogSummary(const LogReport& r) {
    printf("%" PRIu64 " lines read, %" PRIu64 " of the library's (%" PRIu64
           " unreadable), %zu threads\n",
           r.lines, r.libraryLines, r.unreadableCount, r.threads.size());
    printf("%-32s %7s %7s %9s %10s %10s %10s %8s %7s %7s\n", "stream", "frames", "paced", "fps",
           "delay p50", "delay p99", "target", "sleeps", "adjust", "reset");
    for (const auto& [key, s] : r.streams) {
        const StreamFigures f = figures(s);
        const std::string name = key.second + " [" + std::to_string(key.first.pid) + "/" +
                                 std::to_string(key.first.tid) + "]";
        printf("%-32s %7zu %7zu %9.3f %10s %10s %10s %8zu %7zu %7zu\n", name.c_str(), f.controlled,
               f.paced, f.fps, ms(f.delayP50).c_str(), ms(f.delayP99).c_str(), ms(f.target).c_str(),
               f.sleeps, s.adjustStarts.size(), s.resetStarts.size());
    }
    for (const auto& [key, samples] : r.meters) {
        double sum = 0;
        for (const MeterSample& m : samples) sum += m.rate;
        printf("meter %-26s %7zu lines, mean %.3f fps\n", key.second.c_str(), samples.size(),
               sum / samples.size());
    }
    for (const auto& [key, p] : r.profiles)
        printf("profile %-24s %7zu checkpoints\n", key.second.c_str(), p.steps.size());
    for (const auto& [tag, p] : r.problems)
        printf("%-32s %7" PRIu64 " warnings, %" PRIu64 " errors\n", tag.c_str(), p.warnings,
               p.errors);
}

namespace {

struct ReportOptions {
    std::vector<std::string> captures;
    std::string out = "report";
    int pid = -1;
    std::string name, since, until;
};

int run(const ReportOptions& o) {
    LogReaderOptions options;
    options.pid = o.pid;
    options.name = o.name;
    if (!o.since.empty() && !parseTime(o.since, &options.since))
        return badArgument("report", "bad --since '" + o.since + "' ([YYYY-]MM-DD HH:MM:SS[.fff])");
    if (!o.until.empty() && !parseTime(o.until, &options.until))
        return badArgument("report", "bad --until '" + o.until + "' ([YYYY-]MM-DD HH:MM:SS[.fff])");
    LogReader reader(options);
    std::string sources;
    std::vector<std::string> errors;
    for (const std::string& path : o.captures) {
        std::string error;
        if (!reader.read(path, true, &error)) errors.push_back(error);
        sources += (sources.empty() ? "" : ", ") + (path == "-" ? std::string("stdin") : path);
    }
    const std::string firstError = errors.empty() ? "" : errors.front();
    const LogReport& r = reader.result();
    if (r.libraryLines == r.unreadableCount) {
        // Nothing read: say why once, and leave no report behind.
        if (!firstError.empty() && r.lines == 0)
            return badArgument("report", "nothing to read: " + firstError);
        if (r.unreadableCount > 0)
            return badArgument("report",
                               "no readable library lines; " + std::to_string(r.unreadableCount) +
                                       " could not be read, the first at " + r.unreadable.front());
        const bool filtered = o.pid >= 0 || !o.name.empty() || !o.since.empty() || !o.until.empty();
        return badArgument("report", std::string("no library lines") +
                                             (filtered ? " left by --pid, --name, --since, --until"
                                                       : "") +
                                             " in " + sources);
    }
    // Some captures were read: the others are named, and the report is made of the rest.
    for (const std::string& error : errors)
        fprintf(stderr, "zorcam-util report: %s\n", error.c_str());
    if (!makeOutputDir("report", o.out)) return 1;
    std::vector<std::string> files;
    std::string error;
    if (!writeLogReport(r, o.out, sources, &files, &error)) {
        fprintf(stderr, "zorcam-util report: %s\n", error.c_str());
        return 1;
    }
    printLogSummary(r);
    printf("report: %s (%zu files)\n", (std::filesystem::path(o.out) / "index.html").c_str(),
           files.size());
    return 0;
}

const Command sReport(
        "report", "The report of a device's log capture: pacing, frame rates, profiles, problems.",
        [](CLI::App& command) -> Command::Runner {
            auto o = std::make_shared<ReportOptions>();
            command.add_option("capture", o->captures,
                               "logcat text, a bug report or host log lines; .gz read through "
                               "zlib, - for standard input")
                    ->required();
            command.add_option("--out", o->out, "report folder (default report)");
            command.add_option("--pid", o->pid, "only this process")
                    ->check(CLI::Range(0, INT32_MAX));
            command.add_option("--name", o->name, "only this controller, meter or profile");
            command.add_option("--since", o->since, "from this time: [YYYY-]MM-DD HH:MM:SS[.fff]");
            command.add_option("--until", o->until, "up to this time");
            return [o] { return run(*o); };
        });

}  // namespace

}  // namespace zorcam_util
