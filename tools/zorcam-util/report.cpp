// The demo's report: the dumped frames decoded back into pictures and their stamps read back,
// pacing charts, the stage table and the counts in one self-contained page, beside a trace of
// every pipeline thread in the Trace Event format.

#include <sys/stat.h>
#include <unistd.h>
#include <zorcam/utils/std/Misc.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "Demo.h"
#include "RawImage.h"
#include "ReportPage.h"
#include "StampReader.h"
#include "Stats.h"
#include "Svg.h"

namespace zorcam_util {

namespace {

constexpr unsigned kStampDigits = 5;
constexpr int kPageThumbEdge = 480;
constexpr int kSheetThumbEdge = 200;
constexpr double kFpsWindowS = 0.5;

bool readFile(const std::string& path, std::vector<uint8_t>* data) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0 ||
        st.st_size > UINT32_MAX) {
        return false;
    }
    data->resize(static_cast<size_t>(st.st_size));
    return NSCam::Utils::loadFileToBuf(path.c_str(), data->data(),
                                       static_cast<unsigned>(data->size())) == data->size();
}

// Luma from RGB (BT.601 weights), or the samples themselves for grey.
std::vector<uint8_t> greyOf(const Picture& p) {
    if (p.channels == 1) return p.pixels;
    std::vector<uint8_t> grey(static_cast<size_t>(p.width) * p.height);
    for (size_t i = 0; i < grey.size(); ++i) {
        const uint8_t* px = &p.pixels[i * 3];
        grey[i] = static_cast<uint8_t>((77 * px[0] + 150 * px[1] + 29 * px[2]) >> 8);
    }
    return grey;
}

struct DecodedDump {
    uint32_t frame;
    std::string png;  // file name in the report directory, empty when not decoded
    long readBack;    // the stamp's number, -1 when unreadable
    std::string problem;
    Picture thumb;
};

void traceDemo(const DemoResult& r, Trace* trace) {
    const int pid = getpid();
    trace->processName(pid, "zorcam-util demo");
    for (const ThreadTrace& t : r.threads) {
        trace->threadName(pid, t.tid, t.name);
        for (const TraceEvent& e : t.events) {
            nlohmann::json args = nlohmann::json::object();
            if (e.frame >= 0) args["frame"] = e.frame;
            // Microseconds from the start of the run, the nanoseconds kept as decimals.
            trace->slice(pid, t.tid, e.name, t.name, (e.start - r.start) / 1e3, e.duration / 1e3,
                         std::move(args));
        }
    }
}

}  // namespace

bool writeDemoReport(const DemoOptions& o, const DemoResult& r, ReportSummary* summary,
                     std::string* error) {
    const std::filesystem::path dir(o.out);
    auto keep = [&](const std::string& name) { summary->files.push_back(name); };

    // The dumps, decoded back from their files, and the stamps read off the pictures.
    const StampGeometry stamp = stampGeometryFor(o.width, o.height, kStampDigits);
    long modulus = 1;
    for (unsigned d = 0; d < kStampDigits; ++d) modulus *= 10;
    std::vector<DecodedDump> decoded;
    for (const DumpRecord& dump : r.dumps) {
        DecodedDump d{dump.frame, {}, -1, {}, {}};
        std::vector<uint8_t> raw;
        Picture picture;
        std::string why;
        if (!readFile(dump.path, &raw)) {
            d.problem = "cannot read " + dump.path;
        } else if (!decodeRaw(raw.data(), raw.size(), o.format, o.width, o.height, 0,
                              BayerOrder::RGGB, &picture, &why)) {
            d.problem = why;
        } else {
            char name[64];
            snprintf(name, sizeof(name), "frame_%06u.png", dump.frame);
            if (!writePng((dir / name).string(), picture, &why)) {
                d.problem = why;
            } else {
                d.png = name;
                keep(name);
                summary->decoded++;
                const std::vector<uint8_t> grey = greyOf(picture);
                d.readBack = readStamp(grey.data(), o.width, o.height, 1, stamp);
                if (d.readBack == static_cast<long>(dump.frame % modulus)) summary->idMatched++;
                d.thumb = thumbnail(picture, kPageThumbEdge);
            }
        }
        decoded.push_back(std::move(d));
    }
    std::vector<Picture> sheetThumbs;
    for (const DecodedDump& d : decoded)
        if (!d.png.empty()) sheetThumbs.push_back(thumbnail(d.thumb, kSheetThumbEdge));
    std::string sheetPng;
    if (!sheetThumbs.empty()) {
        const Picture sheet = contactSheet(sheetThumbs, 5, 6);
        if (!writePng((dir / "contact_sheet.png").string(), sheet, error)) return false;
        keep("contact_sheet.png");
        sheetPng = encodePng(sheet);
    }

    // Charts.
    const double intervalMs = 1000.0 / o.fps;
    std::vector<double> intervals, times;
    for (size_t i = kDemoWarmup + 1; i < r.releases.size(); ++i) {
        intervals.push_back((r.releases[i] - r.releases[i - 1]) / 1e6);
        times.push_back((r.releases[i] - r.start) / 1e9);
    }
    std::vector<double> errors = intervalErrorsMs(r, o.fps);
    std::sort(errors.begin(), errors.end());
    char title[200];
    snprintf(title, sizeof(title),
             "display intervals (ms), frame interval %.3f ms, p99 |error| %.3f ms", intervalMs,
             percentile(errors, 99));
    const std::string histogram = svgDocument(1, [&](std::ostream& out) {
        svgHistogram(out, 0, title, intervals, intervalMs, 0.25, 8);
    });
    const std::string timeline = svgDocument(1, [&](std::ostream& out) {
        svgSeries(out, 0, "interval (ms) between shown frames over the run (s)", times, intervals,
                  intervalMs);
    });
    std::vector<double> fpsTimes, fpsValues;
    if (!r.releases.empty()) {
        const double end = (r.releases.back() - r.start) / 1e9;
        for (double t = 0; t + kFpsWindowS <= end + 1e-9; t += kFpsWindowS) {
            const auto in = std::count_if(r.releases.begin(), r.releases.end(), [&](int64_t at) {
                const double s = (at - r.start) / 1e9;
                return s >= t && s < t + kFpsWindowS;
            });
            fpsTimes.push_back(t + kFpsWindowS);
            fpsValues.push_back(in / kFpsWindowS);
        }
    }
    const std::string fpsChart = svgDocument(1, [&](std::ostream& out) {
        svgSeries(out, 0, "frames shown per second, over 0.5 s windows, over the run (s)", fpsTimes,
                  fpsValues, o.fps);
    });
    const std::pair<const char*, const std::string*> charts[] = {
            {"pacing_histogram.svg", &histogram},
            {"frame_intervals.svg", &timeline},
            {"fps.svg", &fpsChart}};
    for (const auto& [name, text] : charts) {
        if (!writeText((dir / name).string(), *text, error)) return false;
        keep(name);
    }
    Trace trace((dir / "trace.json").string());
    traceDemo(r, &trace);
    if (!trace.finish(error)) return false;
    keep("trace.json");

    // The page.
    ReportPage page("zorcam-util demo");
    char line[256];
    snprintf(line, sizeof(line),
             "%s %dx%d at %g fps for %g s, %d buffers, every %dth shown frame dumped, capture "
             "jitter 0-%g ms.",
             o.formatName.c_str(), o.width, o.height, o.fps, o.seconds, o.buffers, o.dumpEvery,
             o.jitterMs);
    page.paragraph(line);
    page.heading("Counts");
    page.facts({{"frames in", std::to_string(r.framesIn)},
                {"frames shown", std::to_string(r.framesShown)},
                {"frames dropped (no buffer / late)",
                 std::to_string(r.droppedAtSensor + r.droppedAtDisplay) + " (" +
                         std::to_string(r.droppedAtSensor) + " / " +
                         std::to_string(r.droppedAtDisplay) + ")"},
                {"fps achieved (after the warm-up)", std::to_string(fpsAchieved(r))},
                {"frame-interval error p50 (ms)", std::to_string(percentile(errors, 50))},
                {"frame-interval error p99 (ms)", std::to_string(percentile(errors, 99))},
                {"dumps written", std::to_string(r.dumps.size())},
                {"frame IDs read back",
                 std::to_string(summary->idMatched) + " of " + std::to_string(r.dumps.size())},
                {"fences made / merged",
                 std::to_string(r.fencesMade) + " / " + std::to_string(r.fencesMerged)},
                {"descriptors open before / after", std::to_string(r.descriptorsBefore) + " / " +
                                                            std::to_string(r.descriptorsAfter)}});
    page.heading("Stages");
    std::vector<std::vector<std::string>> stageRows;
    for (const StageTimes& s : r.stages) {
        std::vector<double> wall = s.wall;
        std::sort(wall.begin(), wall.end());
        auto ms = [](double ns) {
            char text[32];
            snprintf(text, sizeof(text), "%.3f", ns / 1e6);
            return std::string(text);
        };
        stageRows.push_back({s.name, std::to_string(s.frames), ms(percentile(wall, 50)),
                             ms(percentile(wall, 99)), ms(wall.empty() ? NAN : wall.back()),
                             ms(s.frames ? static_cast<double>(s.cpu) / s.frames : 0.0)});
    }
    page.table({"stage", "frames", "p50 ms", "p99 ms", "max ms", "CPU ms per frame"}, stageRows);
    page.heading("Pacing");
    for (const auto& [name, text] : charts) page.image(name, "image/svg+xml", *text);
    page.heading("Contact sheet");
    if (!sheetPng.empty()) page.image("contact sheet", "image/png", sheetPng);
    page.heading("Dumped frames");
    std::ostringstream frames;
    for (const DecodedDump& d : decoded) {
        frames << "<div class=\"frame\">";
        if (!d.png.empty()) {
            frames << "<img alt=\"frame " << d.frame << "\" src=\""
                   << dataUri("image/png", encodePng(d.thumb)) << "\"><br>";
        }
        frames << "frame " << d.frame << ": ";
        if (!d.problem.empty())
            frames << "<span class=\"bad\">" << xmlEscape(d.problem) << "</span>";
        else if (d.readBack == static_cast<long>(d.frame % modulus))
            frames << "<span class=\"ok\">stamp reads " << d.readBack << "</span>";
        else
            frames << "<span class=\"bad\">stamp reads " << d.readBack << "</span>";
        if (!d.png.empty()) frames << " (" << d.png << ")";
        frames << "</div>\n";
    }
    page.raw(frames.str());
    page.paragraph("Trace of every thread: trace.json (Perfetto UI, chrome://tracing).");
    if (!writeText((dir / "index.html").string(), page.html(), error)) return false;
    keep("index.html");
    return true;
}

}  // namespace zorcam_util
