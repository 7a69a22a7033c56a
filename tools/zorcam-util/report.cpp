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
#include "StampReader.h"
#include "Stats.h"
#include "Svg.h"

namespace zorcam_util {

namespace {

constexpr unsigned kStampDigits = 5;
constexpr int kPageThumbEdge = 480;
constexpr int kSheetThumbEdge = 200;
constexpr double kFpsWindowS = 0.5;

std::string base64(const std::string& bytes) {
    static const char kAlphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = std::min<size_t>(3, bytes.size() - i);
        uint32_t v = 0;
        for (size_t k = 0; k < 3; ++k)
            v = v << 8 | (k < n ? static_cast<uint8_t>(bytes[i + k]) : 0);
        for (size_t k = 0; k < 4; ++k) out += k <= n ? kAlphabet[(v >> (18 - 6 * k)) & 63] : '=';
    }
    return out;
}

std::string dataUri(const char* type, const std::string& bytes) {
    return std::string("data:") + type + ";base64," + base64(bytes);
}

bool writeText(const std::string& path, const std::string& text, std::string* error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

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

std::string svgDocument(int panels, const std::function<void(std::ostream&)>& body) {
    std::ostringstream out;
    svgBegin(out, panels);
    body(out);
    svgEnd(out);
    return out.str();
}

std::string traceJson(const DemoResult& r) {
    std::ostringstream out;
    const int pid = getpid();
    out << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n";
    out << "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":" << pid << ",\"tid\":" << pid
        << ",\"args\":{\"name\":\"zorcam-util demo\"}}";
    char number[64];
    for (const ThreadTrace& t : r.threads) {
        out << ",\n{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":" << pid << ",\"tid\":" << t.tid
            << ",\"args\":{\"name\":\"" << t.name << "\"}}";
        for (const TraceEvent& e : t.events) {
            // Microseconds from the start of the run, with the nanoseconds kept as decimals.
            snprintf(number, sizeof(number), "%.3f", (e.start - r.start) / 1e3);
            out << ",\n{\"name\":\"" << e.name << "\",\"cat\":\"" << t.name
                << "\",\"ph\":\"X\",\"pid\":" << pid << ",\"tid\":" << t.tid
                << ",\"ts\":" << number;
            snprintf(number, sizeof(number), "%.3f", e.duration / 1e3);
            out << ",\"dur\":" << number << ",\"args\":{";
            if (e.frame >= 0) out << "\"frame\":" << e.frame;
            out << "}}";
        }
    }
    out << "\n]}\n";
    return out.str();
}

const char* const kStyle =
        "body{font-family:sans-serif;margin:24px;color:#222}"
        "table{border-collapse:collapse;margin:8px 0 16px}"
        "td,th{border:1px solid #bbb;padding:3px 8px;text-align:right}"
        "th{background:#eee}td.l,th.l{text-align:left}"
        ".bad{color:#b00;font-weight:bold}.ok{color:#070}"
        "div.frame{display:inline-block;margin:6px;vertical-align:top;font-size:12px}";

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
    if (!writeText((dir / "trace.json").string(), traceJson(r), error)) return false;
    keep("trace.json");

    // The page.
    std::ostringstream html;
    html << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         << "<title>zorcam-util demo report</title>\n<style>" << kStyle << "</style>\n"
         << "</head>\n<body>\n<h1>zorcam-util demo</h1>\n<p>" << xmlEscape(o.formatName) << " "
         << o.width << "x" << o.height << " at " << o.fps << " fps for " << o.seconds << " s, "
         << o.buffers << " buffers, every " << o.dumpEvery
         << "th shown frame dumped, capture jitter 0-" << o.jitterMs << " ms.</p>\n";
    const double span = r.releases.size() > 1 ? (r.releases.back() - r.releases.front()) / 1e9 : 0;
    const std::pair<const char*, std::string> counts[] = {
            {"frames in", std::to_string(r.framesIn)},
            {"frames shown", std::to_string(r.framesShown)},
            {"frames dropped (no buffer / late)",
             std::to_string(r.droppedAtSensor + r.droppedAtDisplay) + " (" +
                     std::to_string(r.droppedAtSensor) + " / " +
                     std::to_string(r.droppedAtDisplay) + ")"},
            {"fps achieved", span > 0 ? std::to_string((r.releases.size() - 1) / span) : "-"},
            {"frame-interval error p50 (ms)", std::to_string(percentile(errors, 50))},
            {"frame-interval error p99 (ms)", std::to_string(percentile(errors, 99))},
            {"dumps written", std::to_string(r.dumps.size())},
            {"frame IDs read back",
             std::to_string(summary->idMatched) + " of " + std::to_string(r.dumps.size())},
            {"fences made / merged",
             std::to_string(r.fencesMade) + " / " + std::to_string(r.fencesMerged)},
            {"descriptors open before / after",
             std::to_string(r.descriptorsBefore) + " / " + std::to_string(r.descriptorsAfter)}};
    html << "<h2>Counts</h2>\n<table>\n";
    for (const auto& [label, value] : counts)
        html << "<tr><th class=\"l\">" << label << "</th><td>" << xmlEscape(value)
             << "</td></tr>\n";
    html << "</table>\n<h2>Stages</h2>\n<table>\n<tr><th class=\"l\">stage</th><th>frames</th>"
         << "<th>p50 ms</th><th>p99 ms</th><th>max ms</th><th>CPU ms per frame</th></tr>\n";
    for (const StageTimes& s : r.stages) {
        std::vector<double> wall = s.wall;
        std::sort(wall.begin(), wall.end());
        char row[256];
        snprintf(row, sizeof(row),
                 "<td>%lld</td><td>%.3f</td><td>%.3f</td><td>%.3f</td><td>%.3f</td>",
                 static_cast<long long>(s.frames), percentile(wall, 50) / 1e6,
                 percentile(wall, 99) / 1e6, wall.empty() ? NAN : wall.back() / 1e6,
                 s.frames ? s.cpu / 1e6 / s.frames : 0.0);
        html << "<tr><td class=\"l\">" << xmlEscape(s.name) << "</td>" << row << "</tr>\n";
    }
    html << "</table>\n<h2>Pacing</h2>\n";
    for (const auto& [name, text] : charts)
        html << "<p><img alt=\"" << name << "\" src=\"" << dataUri("image/svg+xml", *text)
             << "\"></p>\n";
    html << "<h2>Contact sheet</h2>\n";
    if (!sheetPng.empty())
        html << "<p><img alt=\"contact sheet\" src=\"" << dataUri("image/png", sheetPng)
             << "\"></p>\n";
    html << "<h2>Dumped frames</h2>\n";
    for (const DecodedDump& d : decoded) {
        html << "<div class=\"frame\">";
        if (!d.png.empty()) {
            html << "<img alt=\"frame " << d.frame << "\" src=\""
                 << dataUri("image/png", encodePng(d.thumb)) << "\"><br>";
        }
        html << "frame " << d.frame << ": ";
        if (!d.problem.empty())
            html << "<span class=\"bad\">" << xmlEscape(d.problem) << "</span>";
        else if (d.readBack == static_cast<long>(d.frame % modulus))
            html << "<span class=\"ok\">stamp reads " << d.readBack << "</span>";
        else
            html << "<span class=\"bad\">stamp reads " << d.readBack << "</span>";
        if (!d.png.empty()) html << " (" << d.png << ")";
        html << "</div>\n";
    }
    html << "<p>Trace of every thread: trace.json (Perfetto UI, chrome://tracing).</p>\n"
         << "</body>\n</html>\n";
    if (!writeText((dir / "index.html").string(), html.str(), error)) return false;
    keep("index.html");
    return true;
}

}  // namespace zorcam_util
