// The command line: list the exports, describe one, run one on a file or on
// many files at once, build the gallery.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <ostream>
#include <thread>

#include "host.h"
#include "velomar.h"

namespace host {

namespace {

const char kUsage[] =
    "usage:\n"
    "  velomar list                      every export with its parameters\n"
    "  velomar help <Export>             one export's parameters, ranges and defaults\n"
    "  velomar run <Export> [--Param value | --Param=value ...] [--quality N] input output\n"
    "  velomar run <Export> [params] --out-dir DIR file...   many files, one call per file, on every core\n"
    "  velomar gallery [--out DIR] [images ...]\n"
    "  velomar --version\n"
    "Outputs: .png, .jpg/.jpeg (--quality 1..100, default 90), .bmp, .tga; '-' writes PNG to standard "
    "output.\n";

const char* TypeName(ParamType t) {
    switch (t) {
        case ParamType::Int: return "int";
        case ParamType::Byte: return "byte";
        default: return "float";
    }
}

std::string Number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

std::string Lower(std::string text) {
    for (char& ch : text) ch = char(std::tolower(static_cast<unsigned char>(ch)));
    return text;
}

bool SameName(const std::string& a, const std::string& b) { return Lower(a) == Lower(b); }

// Edit distance without regard to case.
size_t Distance(const std::string& a, const std::string& b) {
    const std::string x = Lower(a), y = Lower(b);
    std::vector<size_t> row(y.size() + 1);
    for (size_t j = 0; j <= y.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= x.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= y.size(); ++j) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return row[y.size()];
}

// " (did you mean 'X'?)" for the closest name within a third of its length
// (or one the text begins), else nothing.
std::string Suggest(const std::string& text, const std::vector<std::string>& names) {
    const std::string* best = nullptr;
    size_t bestDistance = std::max<size_t>(2, text.size() / 3) + 1;
    for (const std::string& name : names) {
        const size_t d = Lower(name).rfind(Lower(text), 0) == 0 && text.size() >= 3 ? 1 : Distance(text, name);
        if (d < bestDistance) best = &name, bestDistance = d;
    }
    return best ? " (did you mean '" + *best + "'?)" : "";
}

const char* StatusName(int status) {
    switch (status) {
        case STATUS_OUT_OF_MEMORY: return "out of memory";
        case STATUS_NULL_REFERENCE: return "null reference";
        case STATUS_INVALID_PARAMETER: return "invalid parameter";
        case STATUS_SIZE_MISMATCH: return "size mismatch";
        case STATUS_NOT_SUPPORTED: return "not supported";
        default: return "unknown status";
    }
}

std::string LayoutNames(int layouts) {
    std::string text;
    for (auto [bit, name] : {std::pair{kGrey, "grey"}, {kColour, "colour"}, {kAlpha, "colour with alpha"}})
        if (layouts & bit) text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

void PrintOp(const Op& op, std::ostream& out) {
    out << op.name << "  (" << LayoutNames(op.layouts) << ")  " << op.summary << "\n";
    for (const Param& p : op.params)
        out << "    --" << p.name << " <" << TypeName(p.type) << "> = " << Number(p.value) << "  ["
            << Describe(p) << "]" << (p.help.empty() ? "" : "  " + p.help) << "\n";
}

int List(std::ostream& out) {
    for (const Op& op : Ops()) PrintOp(op, out);
    return 0;
}

const Op* FindOpAnyCase(const std::string& name, std::ostream& err) {
    for (const Op& op : Ops())
        if (SameName(op.name, name)) return &op;
    std::vector<std::string> names;
    for (const Op& op : Ops()) names.push_back(op.name);
    err << "unknown export '" << name << "'" << Suggest(name, names) << " (see 'velomar list')\n";
    return nullptr;
}

int Help(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.size() < 2) {
        out << kUsage;
        return 0;
    }
    const Op* op = FindOpAnyCase(args[1], err);
    if (!op) return 2;
    PrintOp(*op, out);
    return 0;
}

// Parses one value of the given type; false for text that is not one.
bool ParseValue(const std::string& text, ParamType type, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    if (type == ParamType::Double) {
        value = std::strtod(text.c_str(), &end);
        return *end == '\0' && std::isfinite(value);
    }
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0') return false;
    if (type == ParamType::Byte ? (v < 0 || v > 255) : (v < INT32_MIN || v > INT32_MAX)) return false;
    value = double(v);
    return true;
}

// What a run command asks for.
struct Request {
    const Op* op = nullptr;
    std::vector<double> values;
    std::vector<std::string> files;
    std::string outDir;
    int quality = 90;
    bool help = false;
};

// Parses "run <Export> ..."; returns 0, or the exit code after a message.
int ParseRun(const std::vector<std::string>& args, Request& r, std::ostream& err) {
    if (args.size() < 2) {
        err << "run: name an export\n" << kUsage;
        return 2;
    }
    r.op = FindOpAnyCase(args[1], err);
    if (!r.op) return 2;
    const Op& op = *r.op;
    for (const Param& p : op.params) r.values.push_back(p.value);
    for (size_t i = 2; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.rfind("--", 0) != 0) {
            r.files.push_back(a);
            continue;
        }
        if (a == "--help" || a == "-h") {
            r.help = true;
            continue;
        }
        const size_t eq = a.find('=');
        const std::string name = a.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
        std::string text;
        if (eq != std::string::npos) {
            text = a.substr(eq + 1);
        } else if (i + 1 < args.size()) {
            text = args[++i];
        } else {
            err << "--" << name << " needs a value\n";
            return 2;
        }
        if (SameName(name, "out-dir")) {
            r.outDir = text;
            continue;
        }
        if (SameName(name, "quality")) {
            double q = 0;
            if (!ParseValue(text, kInt, q) || q < 1 || q > 100) {
                err << "--quality must be 1..100, got '" << text << "'\n";
                return 2;
            }
            r.quality = int(q);
            continue;
        }
        const auto p = std::find_if(op.params.begin(), op.params.end(),
                                    [&](const Param& q) { return SameName(q.name, name); });
        if (p == op.params.end()) {
            std::vector<std::string> names{"out-dir", "quality"};
            for (const Param& q : op.params) names.push_back(q.name);
            err << op.name << " has no parameter --" << name << Suggest(name, names) << " (see 'velomar help "
                << op.name << "')\n";
            return 2;
        }
        double& value = r.values[size_t(p - op.params.begin())];
        if (!ParseValue(text, p->type, value)) {
            err << "bad value '" << text << "' for --" << p->name << " (expected " << TypeName(p->type) << ", "
                << Describe(*p) << ")\n";
            return 2;
        }
        if (!InRange(*p, value)) {
            err << op.name << ": --" << p->name << " must be " << Describe(*p) << ", got " << text << "\n";
            return 2;
        }
    }
    return 0;
}

// Loads, filters and writes one file; false with the reason in `error`.
bool RunOne(const Request& r, const std::string& in, const std::string& outPath, std::ostream* stdoutStream,
            std::string& error, std::string& warning, double& ms) {
    Image src, dst;
    if (!LoadImage(in, src, error, &warning)) return false;
    const int status = Apply(*r.op, src, r.values, dst, ms);
    if (status != 0) {
        error = r.op->name + " on '" + in + "' failed: status " + std::to_string(status) + " (" +
                StatusName(status) + ")";
        return false;
    }
    return SaveImage(outPath, dst, error, r.quality, stdoutStream);
}

bool IsTerminal(const std::ostream& s) { return &s == &std::cerr && isatty(STDERR_FILENO); }

// Every file into `dir` under its own name, one call per file, on every core.
int RunBatch(const Request& r, std::ostream& out, std::ostream& err) {
    std::error_code ec;
    std::filesystem::create_directories(r.outDir, ec);
    if (ec) {
        err << "cannot create '" << r.outDir << "': " << ec.message() << "\n";
        return 1;
    }
    const size_t n = r.files.size();
    const bool bar = IsTerminal(err);
    std::atomic<size_t> next{0}, failed{0};
    size_t done = 0;
    std::mutex lock;  // guards err and done
    const auto start = std::chrono::steady_clock::now();
    auto worker = [&] {
        for (size_t i; (i = next++) < n;) {
            const std::string& in = r.files[i];
            std::filesystem::path name = std::filesystem::path(in).filename();
            if (!KnownFormat(name.string())) name.replace_extension(".png");
            std::string error, warning;
            double ms = 0;
            const bool ok = RunOne(r, in, (std::filesystem::path(r.outDir) / name).string(), nullptr, error,
                                   warning, ms);
            std::lock_guard<std::mutex> guard(lock);
            ++done;
            if (!ok) ++failed;
            if (bar) err << "\r\033[K";
            if (!warning.empty()) err << "warning: " << warning << "\n";
            if (!ok) err << error << "\n";
            if (bar) {
                const int width = 30, filled = int(width * done / n);
                err << "[" << std::string(size_t(filled), '#') << std::string(size_t(width - filled), '.') << "] "
                    << done << "/" << n << std::flush;
            }
        }
    };
    const unsigned threads = std::max(1u, std::min<unsigned>(std::thread::hardware_concurrency(), unsigned(n)));
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t) pool.emplace_back(worker);
    worker();
    for (std::thread& t : pool) t.join();
    if (bar) err << "\r\033[K";
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out << r.op->name << ": " << n << " files, " << failed << " failed, " << Number(seconds) << " s on "
        << threads << " threads -> " << r.outDir << "\n";
    return failed ? 1 : 0;
}

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    Request r;
    if (const int code = ParseRun(args, r, err)) return code;
    if (r.help) {
        PrintOp(*r.op, out);
        return 0;
    }
    if (!r.outDir.empty()) {
        if (r.files.empty()) {
            err << "run: --out-dir needs input files\n" << kUsage;
            return 2;
        }
        return RunBatch(r, out, err);
    }
    if (r.files.size() != 2) {
        err << "run: give one input and one output file (or --out-dir DIR and input files)\n" << kUsage;
        return 2;
    }
    if (!KnownFormat(r.files[1])) {
        err << "cannot write '" << r.files[1] << "': use .png, .jpg, .jpeg, .bmp, .tga or - (PNG on standard "
            << "output)\n";
        return 2;
    }
    std::string error, warning;
    double ms = 0;
    const bool toStdout = r.files[1] == "-";
    const bool ok = RunOne(r, r.files[0], r.files[1], &out, error, warning, ms);
    if (!warning.empty()) err << "warning: " << warning << "\n";
    if (!ok) {
        err << error << "\n";
        return 1;
    }
    if (!toStdout) out << r.op->name << ": " << r.files[0] << " in " << Number(ms) << " ms -> " << r.files[1] << "\n";
    return 0;
}

int Gallery(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    std::string dir = "gallery";
    std::vector<std::string> images;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--out") {
            if (i + 1 >= args.size()) {
                err << "--out needs a folder\n";
                return 2;
            }
            dir = args[++i];
        } else if (args[i].rfind("--", 0) == 0) {
            err << "gallery: unknown option " << args[i] << "\n" << kUsage;
            return 2;
        } else {
            images.push_back(args[i]);
        }
    }
    if (images.empty())
        for (const char* name : {"coffee.png", "chelsea.png", "camera.png"})
            images.push_back(SamplesDir() + "/" + name);
    return WriteGallery(dir, images, out, err);
}

}  // namespace

std::string SamplesDir() {
    if (const char* env = std::getenv("VELOMAR_SAMPLES")) return env;
    return VELOMAR_SAMPLES_DIR;
}

int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.empty()) {
        err << kUsage;
        return 2;
    }
    const std::string& command = args[0];
    if (command == "--version" || command == "version") {
        out << "velomar " << VELOMAR_VERSION_STRING << "\n";
        return 0;
    }
    if (command == "help" || command == "--help" || command == "-h") return Help(args, out, err);
    if (command == "list") return List(out);
    if (command == "run") return Run(args, out, err);
    if (command == "gallery") return Gallery(args, out, err);
    err << "unknown command '" << command << "'" << Suggest(command, {"list", "help", "run", "gallery"}) << "\n"
        << kUsage;
    return 2;
}

}  // namespace host
