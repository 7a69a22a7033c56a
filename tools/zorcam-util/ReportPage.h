#pragma once

// The report both `demo` and `report` write: one self-contained HTML page (pictures inside it
// as data: URIs), SVG charts beside it, and a trace in the Trace Event format that the Perfetto
// UI opens.

#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace zorcam_util {

/// Writes text to path; false with a message naming the file.
bool writeText(const std::string& path, const std::string& text, std::string* error);

/// "data:<type>;base64,..." for bytes.
std::string dataUri(const char* type, const std::string& bytes);

/// An SVG document of `panels` stacked chart panels drawn by body (Svg.h).
std::string svgDocument(int panels, const std::function<void(std::ostream&)>& body);

/// The HTML page, built up section by section. Text arguments are escaped; cells too.
class ReportPage {
public:
    explicit ReportPage(const std::string& title);
    void heading(const std::string& text);
    void paragraph(const std::string& text);
    /// A table; the first column is left-aligned, the others right-aligned.
    void table(const std::vector<std::string>& header,
               const std::vector<std::vector<std::string>>& rows);
    /// Rows of label and value, labels as header cells.
    void facts(const std::vector<std::pair<std::string, std::string>>& rows);
    void image(const std::string& alt, const char* type, const std::string& bytes);
    /// Markup added as it is, for what the helpers above do not cover.
    void raw(const std::string& html);
    std::string html() const;

private:
    std::string mBody;
    std::string mTitle;
};

/// A trace in the Trace Event format (JSON), times in microseconds, written to its file event by
/// event: a trace of millions of events never sits in memory.
class Trace {
public:
    explicit Trace(const std::string& path);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    void processName(int pid, const std::string& name);
    void threadName(int pid, int tid, const std::string& name);
    void slice(int pid, int tid, const std::string& name, const std::string& category,
               double startUs, double durationUs, nlohmann::json args = nlohmann::json::object());
    void counter(int pid, const std::string& name, double atUs, double value);
    void instant(int pid, int tid, const std::string& name, double atUs,
                 nlohmann::json args = nlohmann::json::object());
    /// Ends the file; false with a message when it could not be written.
    bool finish(std::string* error);

private:
    void add(const nlohmann::json& event);

    std::string mPath;
    FILE* mOut;
    bool mFirst = true;
};

}  // namespace zorcam_util
