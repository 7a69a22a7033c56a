#include "Svg.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace zorcam_util {

namespace {

constexpr int kLeft = 50, kTop = 30, kPlotW = 640, kPlotH = 140;

std::string number(double v) {
    char text[32];
    snprintf(text, sizeof(text), "%.4g", v);
    return text;
}

void axis(std::ostream& out, int y0, const std::string& title, double yMax) {
    out << "<text x=\"" << kLeft << "\" y=\"" << y0 - 10 << "\">" << xmlEscape(title)
        << "</text>\n";
    out << "<line x1=\"" << kLeft << "\" y1=\"" << y0 + kPlotH << "\" x2=\"" << kLeft + kPlotW
        << "\" y2=\"" << y0 + kPlotH << "\" stroke=\"black\"/>\n";
    out << "<text x=\"" << kLeft - 5 << "\" y=\"" << y0 + 10 << "\" text-anchor=\"end\">"
        << number(yMax) << "</text>\n";
    out << "<text x=\"" << kLeft - 5 << "\" y=\"" << y0 + kPlotH
        << "\" text-anchor=\"end\">0</text>\n";
}

void xLabel(std::ostream& out, int y0, double x, double value) {
    out << "<text x=\"" << x << "\" y=\"" << y0 + kPlotH + 14 << "\" text-anchor=\"middle\">"
        << number(value) << "</text>\n";
}

// The points of a line as drawn: with more points than twice the plot's width, each pixel
// column keeps only its lowest and highest point, in order, so the line looks the same and a
// chart of a million frames stays a few kilobytes.
void polyline(std::ostream& out, const std::vector<double>& x, const std::vector<double>& y,
              size_t n, const std::function<double(double)>& px,
              const std::function<double(double)>& py) {
    if (n <= 2 * static_cast<size_t>(kPlotW)) {
        for (size_t i = 0; i < n; ++i) out << px(x[i]) << ',' << py(y[i]) << ' ';
        return;
    }
    size_t i = 0;
    while (i < n) {
        const long column = std::lround(px(x[i]));
        size_t lo = i, hi = i;
        size_t j = i;
        for (; j < n && std::lround(px(x[j])) == column; ++j) {
            if (y[j] < y[lo]) lo = j;
            if (y[j] > y[hi]) hi = j;
        }
        const size_t first = std::min(lo, hi), second = std::max(lo, hi);
        out << px(x[first]) << ',' << py(y[first]) << ' ';
        if (second != first) out << px(x[second]) << ',' << py(y[second]) << ' ';
        i = j;
    }
}

}  // namespace

std::string xmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void svgBegin(std::ostream& out, int panels) {
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kSvgWidth << "\" height=\""
        << kSvgPanelHeight * panels + 20 << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
}

void svgEnd(std::ostream& out) {
    out << "</svg>\n";
}

void svgHistogram(std::ostream& out, int panel, const std::string& title,
                  const std::vector<double>& values, double centre, double binWidth, double span) {
    const int bins = std::max(1, static_cast<int>(std::lround(2 * span / binWidth)));
    std::vector<int> counts(bins, 0);
    for (double v : values) {
        const int b = static_cast<int>(std::floor((v - centre + span) / binWidth));
        counts[std::clamp(b, 0, bins - 1)]++;
    }
    const int peak = std::max(1, *std::max_element(counts.begin(), counts.end()));
    const int y0 = panel * kSvgPanelHeight + kTop;
    axis(out, y0, title, peak);
    const double bw = static_cast<double>(kPlotW) / bins;
    for (int b = 0; b < bins; ++b) {
        if (counts[b] == 0) continue;
        const double h = static_cast<double>(counts[b]) / peak * kPlotH;
        out << "<rect x=\"" << kLeft + b * bw << "\" y=\"" << y0 + kPlotH - h << "\" width=\""
            << std::max(bw - 1, 0.5) << "\" height=\"" << h << "\" fill=\"steelblue\"><title>"
            << counts[b] << "</title></rect>\n";
    }
    for (int t = -4; t <= 4; ++t)
        xLabel(out, y0, kLeft + (t + 4) / 8.0 * kPlotW, centre + t * span / 4);
}

void svgSeries(std::ostream& out, int panel, const std::string& title, const std::vector<double>& x,
               const std::vector<double>& y, double yRef) {
    const int y0 = panel * kSvgPanelHeight + kTop;
    const size_t n = std::min(x.size(), y.size());
    double xMin = 0, xMax = 1, yMax = std::isnan(yRef) ? 0 : yRef;
    if (n > 0) {
        xMin = *std::min_element(x.begin(), x.begin() + n);
        xMax = *std::max_element(x.begin(), x.begin() + n);
        yMax = std::max(yMax, *std::max_element(y.begin(), y.begin() + n));
    }
    if (xMax <= xMin) xMax = xMin + 1;
    yMax = yMax > 0 ? yMax * 1.1 : 1;
    axis(out, y0, title, yMax);
    auto px = [&](double v) { return kLeft + (v - xMin) / (xMax - xMin) * kPlotW; };
    auto py = [&](double v) { return y0 + kPlotH - std::clamp(v / yMax, 0.0, 1.0) * kPlotH; };
    if (!std::isnan(yRef)) {
        out << "<line x1=\"" << kLeft << "\" y1=\"" << py(yRef) << "\" x2=\"" << kLeft + kPlotW
            << "\" y2=\"" << py(yRef) << "\" stroke=\"gray\" stroke-dasharray=\"4 3\"/>\n";
    }
    if (n > 0) {
        out << "<polyline fill=\"none\" stroke=\"steelblue\" points=\"";
        polyline(out, x, y, n, px, py);
        out << "\"/>\n";
    }
    for (int t = 0; t <= 4; ++t)
        xLabel(out, y0, kLeft + t / 4.0 * kPlotW, xMin + t * (xMax - xMin) / 4);
}

void svgLines(std::ostream& out, int panel, const std::string& title,
              const std::vector<SvgLine>& lines) {
    const int y0 = panel * kSvgPanelHeight + kTop;
    double xMin = INFINITY, xMax = -INFINITY, yMax = 0;
    for (const SvgLine& l : lines) {
        const size_t n = std::min(l.x.size(), l.y.size());
        for (size_t i = 0; i < n; ++i) {
            xMin = std::min(xMin, l.x[i]);
            xMax = std::max(xMax, l.x[i]);
            if (std::isfinite(l.y[i])) yMax = std::max(yMax, l.y[i]);
        }
    }
    if (!(xMin < xMax)) {
        xMin = std::isfinite(xMin) ? xMin : 0;
        xMax = xMin + 1;
    }
    yMax = yMax > 0 ? yMax * 1.1 : 1;
    axis(out, y0, title, yMax);
    auto px = [&](double v) { return kLeft + (v - xMin) / (xMax - xMin) * kPlotW; };
    auto py = [&](double v) { return y0 + kPlotH - std::clamp(v / yMax, 0.0, 1.0) * kPlotH; };
    double labelY = y0 + 2;
    for (const SvgLine& l : lines) {
        const size_t n = std::min(l.x.size(), l.y.size());
        if (n > 0) {
            out << "<polyline fill=\"none\" stroke=\"" << l.colour << "\""
                << (l.dashed ? " stroke-dasharray=\"4 3\"" : "") << " points=\"";
            polyline(out, l.x, l.y, n, px, py);
            out << "\"/>\n";
        }
        out << "<text x=\"" << kLeft + kPlotW - 4 << "\" y=\"" << labelY
            << "\" text-anchor=\"end\" fill=\"" << l.colour << "\">" << xmlEscape(l.label)
            << "</text>\n";
        labelY += 12;
    }
    for (int t = 0; t <= 4; ++t)
        xLabel(out, y0, kLeft + t / 4.0 * kPlotW, xMin + t * (xMax - xMin) / 4);
}

}  // namespace zorcam_util
