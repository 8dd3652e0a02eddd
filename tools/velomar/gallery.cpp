// The gallery page: every export grouped by family, each result beside its
// input under a before/after slider, a sweep of the parameter that matters,
// denoisers on a noisy copy with what they removed, the pictures an export
// is called with, a command line for every result, and a chart of the time
// each export takes per megapixel. One static folder that opens from disk.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <sstream>

#include "host.h"

namespace host {

namespace {

using Values = std::vector<double>;

std::string Escape(const std::string& text) {
    std::string s;
    for (char c : text) {
        if (c == '<') s += "&lt;";
        else if (c == '>') s += "&gt;";
        else if (c == '&') s += "&amp;";
        else if (c == '"') s += "&quot;";
        else s += c;
    }
    return s;
}

std::string Anchor(const std::string& text) {
    std::string id;
    for (char c : text) id += std::isalnum(static_cast<unsigned char>(c)) ? char(std::tolower(c)) : '-';
    return id;
}

std::string Number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

std::string Fixed(double v, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

// Calls the export several times and keeps the median time (three calls when
// one takes longer than a fifth of a second, else five).
int TimedApply(const Op& op, const Image& src, const Values& values, Image& out, double& ms) {
    std::vector<double> times(1);
    int status = Apply(op, src, values, out, times[0]);
    if (status != 0) return status;
    const size_t calls = times[0] > 200 ? 3 : 5;
    while (times.size() < calls) {
        Image again;
        Apply(op, src, values, again, times.emplace_back());
    }
    std::sort(times.begin(), times.end());
    ms = times[times.size() / 2];
    return 0;
}

// The picture with Gaussian noise of deviation 12 added, the same every run.
Image Noisy(const Image& clean) {
    std::mt19937 rng(20261123);
    std::normal_distribution<double> noise(0.0, 12.0);
    Image noisy = clean;
    for (int y = 0; y < clean.height; ++y)
        for (int x = 0; x < clean.width * clean.channels; ++x) {
            uint8_t& v = noisy.pixels[size_t(y) * noisy.stride + x];
            v = uint8_t(std::clamp(v + std::lround(noise(rng)), 0L, 255L));
        }
    return noisy;
}

// |a - b| x 4 per byte: what a filter changed, made visible.
Image Difference(const Image& a, const Image& b) {
    Image d = b;
    for (int y = 0; y < b.height; ++y)
        for (int x = 0; x < b.width * b.channels; ++x) {
            const size_t i = size_t(y) * b.stride + x;
            d.pixels[i] = uint8_t(std::min(255, 4 * std::abs(int(a.pixels[i]) - int(b.pixels[i]))));
        }
    return d;
}

bool Denoiser(const Op& op) { return op.family == "Edge-preserving smoothing and denoising" || op.name == "MedianBlur"; }

// The parameter whose sweep shows most, with the values shown: a deviation,
// a rank, a radius or a length, in that order of preference; values out of
// the parameter's range are left out.
struct Sweep {
    size_t param;
    std::vector<double> values;
};

std::optional<Sweep> SweepFor(const Op& op) {
    const std::pair<const char*, Values> kinds[] = {
        {"Sigma", {1, 4, 16}}, {"Percent", {10, 50, 90}}, {"Radius", {1, 5, 20}}, {"Distance", {5, 20, 60}}};
    for (const auto& [kind, values] : kinds)
        for (size_t k = 0; k < op.params.size(); ++k) {
            if (op.params[k].name.rfind(kind, 0) != 0) continue;
            Sweep s{k, {}};
            for (double v : values)
                if (InRange(op.params[k], v)) s.values.push_back(v);
            if (s.values.size() > 1) return s;
        }
    return std::nullopt;
}

std::string Quoted(const std::string& path) {
    return path.find_first_of(" '\"$\\") == std::string::npos ? path : "'" + path + "'";
}

std::string CommandLine(const Op& op, const Values& values, const std::string& input) {
    std::string line = "velomar run " + op.name;
    for (size_t k = 0; k < op.params.size(); ++k) line += " --" + op.params[k].name + " " + Number(values[k]);
    return line + " " + Quoted(input) + " out.png";
}

Values Defaults(const Op& op) {
    Values v;
    for (const Param& p : op.params) v.push_back(p.value);
    return v;
}

const char kStyle[] = R"(<style>
body{font-family:system-ui,sans-serif;margin:0;color:#222;background:#fafafa}
main{max-width:1200px;margin:auto;padding:1em 2em}
nav{columns:3 16em;font-size:90%;background:#fff;border:1px solid #ddd;padding:.5em 1em}
nav h3{margin:.4em 0 .2em;font-size:100%} nav a{display:block;text-decoration:none}
section.op{background:#fff;border:1px solid #ddd;border-radius:6px;padding:0 1em 1em;margin:1.2em 0}
.strip img{height:90px;margin-right:6px;border:1px solid #ccc}
table.params{border-collapse:collapse;font-size:90%} table.params td{padding:2px 10px 2px 0}
figure{display:inline-block;vertical-align:top;margin:.5em 1em .5em 0;max-width:100%}
figcaption{font-size:85%;max-width:600px} code{font-size:85%;background:#f0f0f0;padding:1px 3px;word-break:break-all}
.cmp{position:relative;display:inline-block;max-width:100%;line-height:0;--pos:50%}
.cmp img{display:block;max-width:100%;max-height:420px}
.cmp .after{position:absolute;top:0;left:0;width:100%;height:100%;clip-path:inset(0 0 0 var(--pos))}
.cmp input{position:absolute;left:0;bottom:4px;width:100%;margin:0}
.cmp.one{overflow:auto;max-height:none} .cmp.one img{max-width:none;max-height:none;width:auto;height:auto;image-rendering:pixelated}
.true img{max-width:none}
.sweep img{max-width:280px;display:block}
.fail{color:#b00}
.bars div{display:flex;align-items:center;font-size:85%;margin:1px 0}
.bars a{width:22em;text-align:right;padding-right:.6em;text-decoration:none}
.bars span{background:#4a7fc1;height:.9em} .bars em{padding-left:.4em;font-style:normal;color:#555}
</style>
)";

// The slider follows its range input; the 1:1 button shows the pair at its
// true size; once everything has loaded, every image that did not is named
// on the console and counted on the body (the browser check reads it).
const char kScript[] = R"(<script>
document.addEventListener('input', e => {
  if (e.target.matches('.cmp input')) e.target.parentNode.style.setProperty('--pos', e.target.value + '%');
});
document.addEventListener('click', e => {
  if (e.target.matches('button.zoom')) e.target.parentNode.querySelector('.cmp').classList.toggle('one');
});
window.addEventListener('load', () => {
  const broken = [...document.images].filter(i => !i.complete || i.naturalWidth === 0);
  broken.forEach(i => console.error('missing image ' + i.getAttribute('src')));
  document.body.dataset.images = document.images.length;
  document.body.dataset.broken = broken.length;
});
</script>
)";

struct Input {
    std::string path, stem, file, noisyFile;
    Image image, noisy;
};

}  // namespace

int WriteGallery(const std::string& dir, const std::vector<std::string>& images, std::ostream& out,
                 std::ostream& err) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        err << "cannot create '" << dir << "': " << ec.message() << "\n";
        return 1;
    }
    int failures = 0, runs = 0;
    std::string error;
    auto save = [&](const std::string& file, const Image& image) {
        if (SaveImage(dir + "/" + file, image, error, 88)) return true;
        err << error << "\n";
        return false;
    };
    std::vector<Input> inputs;
    for (const std::string& path : images) {
        Input in{path, std::filesystem::path(path).stem().string(), "", "", {}, {}};
        if (!LoadImage(path, in.image, error)) {
            err << error << "\n";
            ++failures;
            continue;
        }
        in.file = "in-" + in.stem + ".png";
        in.noisyFile = "noisy-" + in.stem + ".png";
        in.noisy = Noisy(in.image);
        if (!save(in.file, in.image) || !save(in.noisyFile, in.noisy)) return 1;
        inputs.push_back(std::move(in));
    }

    std::vector<std::string> families;
    for (const Op& op : Ops())
        if (std::find(families.begin(), families.end(), op.family) == families.end()) families.push_back(op.family);

    std::ostringstream body;
    std::map<std::string, double> msPerMp;  // median over the inputs
    for (const std::string& family : families) {
        body << "<h2 id=\"" << Anchor(family) << "\">" << Escape(family) << "</h2>\n<div class=\"strip\">";
        for (const Input& in : inputs)
            body << "<img src=\"" << in.file << "\" alt=\"" << Escape(in.stem) << "\" title=\"" << Escape(in.stem)
                 << " " << in.image.width << "&times;" << in.image.height << "\">";
        body << "</div>\n";
        for (const Op& op : Ops()) {
            if (op.family != family) continue;
            const Values values = Defaults(op);
            body << "<section class=\"op\" id=\"" << op.name << "\"><h3>" << op.name << "</h3><p>"
                 << Escape(op.summary) << (Denoiser(op) ? " &mdash; shown on a copy with Gaussian noise (&sigma; 12)" : "")
                 << "</p>\n";
            if (!op.params.empty()) {
                body << "<table class=\"params\">";
                for (const Param& p : op.params)
                    body << "<tr><td><code>--" << p.name << " " << Number(p.value) << "</code></td><td>"
                         << Escape(Describe(p)) << "</td><td>" << Escape(p.help) << "</td></tr>";
                body << "</table>\n";
            }
            std::vector<double> rates;
            for (const Input& in : inputs) {
                const bool noisy = Denoiser(op);
                const Image& src = noisy ? in.noisy : in.image;
                const std::string before = noisy ? in.noisyFile : in.file;
                Image dst;
                double ms = 0;
                const int status = TimedApply(op, src, values, dst, ms);
                if (status != 0) {
                    body << "<p class=\"fail\">" << Escape(in.stem) << ": status " << status << "</p>\n";
                    err << op.name << " on " << in.stem << ": status " << status << "\n";
                    ++failures;
                    continue;
                }
                ++runs;
                rates.push_back(ms / (double(src.width) * src.height / 1e6));
                const std::string file = in.stem + "-" + op.name + ".png";
                if (!save(file, dst)) return 1;
                const std::string caption = "<figcaption>" + Escape(in.stem) + ", " + Fixed(ms, 2) +
                                            " ms (median of several calls)<br><code>" +
                                            Escape(CommandLine(op, values, in.path)) + "</code></figcaption>";
                if (dst.width == src.width && dst.height == src.height) {
                    body << "<figure><div class=\"cmp\"><img src=\"" << before << "\" alt=\"before\"><img class=\"after\" src=\""
                         << file << "\" alt=\"" << op.name << "\"><input type=\"range\" min=\"0\" max=\"100\" "
                         << "value=\"50\" aria-label=\"before and after\"></div><button class=\"zoom\">1:1</button>"
                         << caption << "</figure>\n";
                } else {  // another size: both at their true size
                    body << "<figure class=\"true\"><img src=\"" << before << "\" alt=\"before\"> <img src=\"" << file
                         << "\" alt=\"" << op.name << "\">" << caption << "</figure>\n";
                }
                if (noisy) {
                    const std::string diff = in.stem + "-" + op.name + "-removed.png";
                    if (!save(diff, Difference(src, dst))) return 1;
                    body << "<figure><img src=\"" << diff << "\" alt=\"removed\" style=\"max-width:420px\">"
                         << "<figcaption>what it removed: |noisy &minus; result| &times; 4</figcaption></figure>\n";
                }
            }
            if (!rates.empty()) {
                std::sort(rates.begin(), rates.end());
                msPerMp[op.name] = rates[rates.size() / 2];
            }
            if (inputs.empty()) continue;
            const Input& first = inputs.front();
            const Image& firstSrc = Denoiser(op) ? first.noisy : first.image;
            if (const std::optional<Sweep> sweep = SweepFor(op)) {
                body << "<div class=\"sweep\">";
                for (size_t k = 0; k < sweep->values.size(); ++k) {
                    Values v = values;
                    v[sweep->param] = sweep->values[k];
                    Image dst;
                    double ms = 0;
                    if (Apply(op, firstSrc, v, dst, ms) != 0) continue;
                    const std::string file = "sweep-" + op.name + "-" + std::to_string(k) + ".jpg";
                    if (!save(file, dst)) return 1;
                    body << "<figure><img src=\"" << file << "\" alt=\"" << op.name << "\"><figcaption>--"
                         << op.params[sweep->param].name << " " << Number(sweep->values[k]) << "</figcaption></figure>";
                }
                body << "</div>\n";
            }
            if (op.references) {
                body << "<div><p>Called with:</p>";
                int k = 0;
                for (const auto& [label, picture] : op.references(firstSrc, values)) {
                    const std::string file = "ref-" + op.name + "-" + std::to_string(k++) + ".png";
                    if (!save(file, picture)) return 1;
                    body << "<figure><img src=\"" << file << "\" alt=\"" << Escape(label)
                         << "\" style=\"max-width:280px\"><figcaption>" << Escape(label) << "</figcaption></figure>";
                }
                body << "</div>\n";
            }
            body << "</section>\n";
        }
    }

    // The chart: milliseconds per megapixel on a logarithmic scale.
    std::vector<std::pair<double, std::string>> order;
    for (const auto& [name, rate] : msPerMp) order.push_back({rate, name});
    std::sort(order.rbegin(), order.rend());
    std::ostringstream chart;
    chart << "<h2 id=\"timing\">Time per megapixel</h2>\n<p>One single-threaded call, the median of several, "
             "on each image; the median over the images. Logarithmic scale.</p>\n<div class=\"bars\">\n";
    if (!order.empty()) {
        const double lo = std::log(std::max(1e-4, order.back().first)), hi = std::log(std::max(1e-4, order.front().first));
        for (const auto& [rate, name] : order) {
            const double share = hi > lo ? (std::log(std::max(1e-4, rate)) - lo) / (hi - lo) : 1.0;
            chart << "<div><a href=\"#" << name << "\">" << name << "</a><span style=\"width:"
                  << Fixed(2 + 60 * share, 1) << "%\"></span><em>" << Fixed(rate, rate < 10 ? 2 : 0)
                  << " ms/MP</em></div>\n";
        }
    }
    chart << "</div>\n";

    std::ofstream html(dir + "/index.html");
    if (!html) {
        err << "cannot write '" << dir << "/index.html'\n";
        return 1;
    }
    html << "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Velomar gallery</title>\n"
         << kStyle << "</head><body><main>\n<h1>Velomar gallery</h1>\n<p>Every export with its default "
         << "parameters on each picture. Drag a slider to compare before and after; <b>1:1</b> shows a pair at its "
         << "true size. Each result's command line reproduces it.</p>\n<nav>";
    for (const std::string& family : families) {
        html << "<h3><a href=\"#" << Anchor(family) << "\">" << Escape(family) << "</a></h3>";
        for (const Op& op : Ops())
            if (op.family == family) html << "<a href=\"#" << op.name << "\">" << op.name << "</a>";
    }
    html << "<h3><a href=\"#timing\">Time per megapixel</a></h3></nav>\n"
         << body.str() << chart.str() << "</main>\n" << kScript << "</body></html>\n";
    out << "gallery: " << runs << " runs of " << Ops().size() << " exports on " << inputs.size() << " of "
        << images.size() << " images (" << failures << " failed) -> " << dir << "/index.html\n";
    return failures ? 1 : 0;
}

}  // namespace host
