#include "ReportPage.h"

#include <fstream>
#include <sstream>

#include "Svg.h"

namespace zorcam_util {

namespace {

const char* const kStyle =
        "body{font-family:sans-serif;margin:24px;color:#222}"
        "table{border-collapse:collapse;margin:8px 0 16px}"
        "td,th{border:1px solid #bbb;padding:3px 8px;text-align:right}"
        "th{background:#eee}td.l,th.l{text-align:left}"
        ".bad{color:#b00;font-weight:bold}.ok{color:#070}"
        "div.frame{display:inline-block;margin:6px;vertical-align:top;font-size:12px}";

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

}  // namespace

bool writeText(const std::string& path, const std::string& text, std::string* error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

std::string dataUri(const char* type, const std::string& bytes) {
    return std::string("data:") + type + ";base64," + base64(bytes);
}

std::string svgDocument(int panels, const std::function<void(std::ostream&)>& body) {
    std::ostringstream out;
    svgBegin(out, panels);
    body(out);
    svgEnd(out);
    return out.str();
}

ReportPage::ReportPage(const std::string& title) : mTitle(title) {}

void ReportPage::heading(const std::string& text) {
    mBody += "<h2>" + xmlEscape(text) + "</h2>\n";
}

void ReportPage::paragraph(const std::string& text) {
    mBody += "<p>" + xmlEscape(text) + "</p>\n";
}

void ReportPage::table(const std::vector<std::string>& header,
                       const std::vector<std::vector<std::string>>& rows) {
    mBody += "<table>\n<tr>";
    for (size_t i = 0; i < header.size(); ++i)
        mBody += (i == 0 ? "<th class=\"l\">" : "<th>") + xmlEscape(header[i]) + "</th>";
    mBody += "</tr>\n";
    for (const auto& row : rows) {
        mBody += "<tr>";
        for (size_t i = 0; i < row.size(); ++i)
            mBody += (i == 0 ? "<td class=\"l\">" : "<td>") + xmlEscape(row[i]) + "</td>";
        mBody += "</tr>\n";
    }
    mBody += "</table>\n";
}

void ReportPage::facts(const std::vector<std::pair<std::string, std::string>>& rows) {
    mBody += "<table>\n";
    for (const auto& [label, value] : rows)
        mBody += "<tr><th class=\"l\">" + xmlEscape(label) + "</th><td>" + xmlEscape(value) +
                 "</td></tr>\n";
    mBody += "</table>\n";
}

void ReportPage::image(const std::string& alt, const char* type, const std::string& bytes) {
    mBody += "<p><img alt=\"" + xmlEscape(alt) + "\" src=\"" + dataUri(type, bytes) + "\"></p>\n";
}

void ReportPage::raw(const std::string& html) {
    mBody += html;
}

std::string ReportPage::html() const {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
           xmlEscape(mTitle) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<h1>" +
           xmlEscape(mTitle) + "</h1>\n" + mBody + "</body>\n</html>\n";
}

Trace::Trace(const std::string& path) : mPath(path), mOut(fopen(path.c_str(), "w")) {
    if (mOut != nullptr) fputs("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n", mOut);
}

Trace::~Trace() {
    if (mOut != nullptr) fclose(mOut);
}

void Trace::add(const nlohmann::json& event) {
    if (mOut == nullptr) return;
    // One event per line keeps a large trace readable with a text editor too.
    if (!mFirst) fputs(",\n", mOut);
    mFirst = false;
    fputs(event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str(), mOut);
}

void Trace::processName(int pid, const std::string& name) {
    add({{"name", "process_name"}, {"ph", "M"}, {"pid", pid}, {"tid", pid},
         {"args", {{"name", name}}}});
}

void Trace::threadName(int pid, int tid, const std::string& name) {
    add({{"name", "thread_name"}, {"ph", "M"}, {"pid", pid}, {"tid", tid},
         {"args", {{"name", name}}}});
}

void Trace::slice(int pid, int tid, const std::string& name, const std::string& category,
                  double startUs, double durationUs, nlohmann::json args) {
    add({{"name", name}, {"cat", category}, {"ph", "X"}, {"pid", pid}, {"tid", tid},
         {"ts", startUs}, {"dur", durationUs}, {"args", std::move(args)}});
}

void Trace::counter(int pid, const std::string& name, double atUs, double value) {
    add({{"name", name}, {"ph", "C"}, {"pid", pid}, {"tid", pid}, {"ts", atUs},
         {"args", {{"value", value}}}});
}

void Trace::instant(int pid, int tid, const std::string& name, double atUs, nlohmann::json args) {
    add({{"name", name}, {"ph", "i"}, {"s", "t"}, {"pid", pid}, {"tid", tid}, {"ts", atUs},
         {"args", std::move(args)}});
}

bool Trace::finish(std::string* error) {
    if (mOut == nullptr) {
        *error = "cannot write " + mPath;
        return false;
    }
    fputs("\n]}\n", mOut);
    const bool ok = ferror(mOut) == 0;
    const bool closed = fclose(mOut) == 0;
    mOut = nullptr;
    if (!ok || !closed) *error = "cannot write " + mPath;
    return ok && closed;
}

}  // namespace zorcam_util
