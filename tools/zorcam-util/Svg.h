#pragma once

// Small SVG charts (histograms and time series) written as text, shared by the sub-commands
// that plot. Each chart is a panel 720 units wide and kSvgPanelHeight high; a document stacks
// panels.

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

namespace zorcam_util {

constexpr int kSvgWidth = 720;
constexpr int kSvgPanelHeight = 200;

/// Text with &, <, >, " and ' escaped for XML.
std::string xmlEscape(const std::string& text);

/// Starts a document of `panels` stacked panels on a white background.
void svgBegin(std::ostream& out, int panels);
void svgEnd(std::ostream& out);

/// Histogram of values in bins of binWidth over centre +- span; values outside pile into the
/// end bins. Panel number `panel` (0 at the top).
void svgHistogram(std::ostream& out, int panel, const std::string& title,
                  const std::vector<double>& values, double centre, double binWidth, double span);

/// Points (x[i], y[i]) joined by a line, with a dashed reference line at yRef unless it is NaN.
void svgSeries(std::ostream& out, int panel, const std::string& title, const std::vector<double>& x,
               const std::vector<double>& y, double yRef = NAN);

/// One line of a multi-line chart.
struct SvgLine {
    std::string label;
    std::vector<double> x, y;
    const char* colour = "steelblue";
    bool dashed = false;
};

/// Several lines over shared axes, labelled in the panel's top right corner.
void svgLines(std::ostream& out, int panel, const std::string& title,
              const std::vector<SvgLine>& lines);

}  // namespace zorcam_util
