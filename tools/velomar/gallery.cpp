// The gallery page: every export with its defaults on every image, input and
// output side by side, with the time each call took.
#include <filesystem>
#include <fstream>
#include <ostream>

#include "host.h"

namespace host {

namespace {

std::string Escape(const std::string& text) {
    std::string s;
    for (char c : text) {
        if (c == '<') s += "&lt;";
        else if (c == '>') s += "&gt;";
        else if (c == '&') s += "&amp;";
        else s += c;
    }
    return s;
}

std::string Stem(const std::string& path) { return std::filesystem::path(path).stem().string(); }

}  // namespace

int WriteGallery(const std::string& dir, const std::vector<std::string>& images, std::ostream& out,
                 std::ostream& err) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        err << "cannot create '" << dir << "': " << ec.message() << "\n";
        return 1;
    }
    std::ofstream html(dir + "/index.html");
    if (!html) {
        err << "cannot write '" << dir << "/index.html'\n";
        return 1;
    }
    html << "<!doctype html>\n<html><head><meta charset=\"utf-8\"><title>Velomar gallery</title>\n"
            "<style>body{font-family:sans-serif;margin:1em}table{border-collapse:collapse}"
            "td,th{border:1px solid #ccc;padding:6px;vertical-align:top}img{max-width:360px}"
            "code{font-size:90%}.fail{color:#b00}</style></head><body>\n"
            "<h1>Velomar gallery</h1>\n<p>Every export with its default parameters, applied to each "
            "image. Times are one single-threaded call, including nothing but the export.</p>\n";
    int failures = 0, loaded = 0, runs = 0;
    for (const std::string& path : images) {
        Image src;
        std::string error;
        if (!LoadImage(path, src, error)) {
            err << error << "\n";
            ++failures;
            continue;
        }
        ++loaded;
        const std::string stem = Stem(path);
        if (!SavePng(dir + "/" + stem + ".png", src, error)) {
            err << error << "\n";
            return 1;
        }
        html << "<h2>" << Escape(stem) << " (" << src.width << "&times;" << src.height << ", "
             << (src.channels == 1 ? "grey" : "colour") << ")</h2>\n<table>\n"
             << "<tr><th>export</th><th>parameters</th><th>input</th><th>output</th><th>time</th></tr>\n";
        for (const Op& op : Ops()) {
            std::vector<double> values;
            std::string params;
            for (const Param& p : op.params) {
                values.push_back(p.value);
                char text[64];
                std::snprintf(text, sizeof text, "%s=%g ", p.name.c_str(), p.value);
                params += text;
            }
            Image dst;
            double ms = 0;
            const int status = Apply(op, src, values, dst, ms);
            const std::string file = stem + "-" + op.name + ".png";
            html << "<tr><td><b>" << op.name << "</b><br>" << Escape(op.summary) << "</td><td><code>"
                 << Escape(params) << "</code></td><td><img src=\"" << stem << ".png\"></td>";
            if (status != 0) {
                html << "<td class=\"fail\">status " << status << "</td><td></td></tr>\n";
                err << op.name << " on " << stem << ": status " << status << "\n";
                ++failures;
                continue;
            }
            if (!SavePng(dir + "/" + file, dst, error)) {
                err << error << "\n";
                return 1;
            }
            ++runs;
            char time[32];
            std::snprintf(time, sizeof time, "%.2f ms", ms);
            html << "<td><img src=\"" << file << "\"></td><td>" << time << "</td></tr>\n";
        }
        html << "</table>\n";
    }
    html << "</body></html>\n";
    out << "gallery: " << runs << " runs of " << Ops().size() << " exports on " << loaded << " of " << images.size()
        << " images (" << failures << " failed) -> " << dir << "/index.html\n";
    return failures ? 1 : 0;
}

}  // namespace host
