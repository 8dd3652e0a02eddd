// The command line: list the exports, run one on a file, build the gallery.
#include <cmath>
#include <cstdlib>
#include <ostream>

#include "host.h"

namespace host {

namespace {

const char kUsage[] =
    "usage:\n"
    "  velomar list\n"
    "  velomar run <Export> [--Param value ...] input output.png\n"
    "  velomar gallery [--out DIR] [images ...]\n";

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

int List(std::ostream& out) {
    for (const Op& op : Ops()) {
        const char* layouts = op.layouts == kAnyLayout ? "grey, colour" : op.layouts == kGrey ? "grey" : "colour";
        out << op.name << "  (" << layouts << ")  " << op.summary << "\n";
        for (const Param& p : op.params)
            out << "    --" << p.name << " <" << TypeName(p.type) << "> = " << Number(p.value) << "  "
                << p.help << "\n";
    }
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

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.size() < 2) {
        err << "run: name an export\n" << kUsage;
        return 2;
    }
    const Op* op = FindOp(args[1]);
    if (!op) {
        err << "unknown export '" << args[1] << "' (see 'velomar list')\n";
        return 2;
    }
    std::vector<double> values;
    for (const Param& p : op->params) values.push_back(p.value);
    std::vector<std::string> files;
    for (size_t i = 2; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.rfind("--", 0) != 0) {
            files.push_back(a);
            continue;
        }
        const std::string name = a.substr(2);
        size_t k = 0;
        while (k < op->params.size() && op->params[k].name != name) ++k;
        if (k == op->params.size()) {
            err << op->name << " has no parameter --" << name << " (see 'velomar list')\n";
            return 2;
        }
        if (i + 1 >= args.size()) {
            err << "--" << name << " needs a value\n";
            return 2;
        }
        if (!ParseValue(args[++i], op->params[k].type, values[k])) {
            err << "bad value '" << args[i] << "' for --" << name << " (expected "
                << TypeName(op->params[k].type) << ")\n";
            return 2;
        }
    }
    if (files.size() != 2) {
        err << "run: give one input and one output file\n" << kUsage;
        return 2;
    }
    Image src, dst;
    std::string error;
    if (!LoadImage(files[0], src, error)) {
        err << error << "\n";
        return 1;
    }
    double ms = 0;
    int status = Apply(*op, src, values, dst, ms);
    if (status != 0) {
        err << op->name << " failed with status " << status << "\n";
        return 1;
    }
    if (!SavePng(files[1], dst, error)) {
        err << error << "\n";
        return 1;
    }
    out << op->name << ": " << src.width << "x" << src.height << " in " << Number(ms) << " ms -> "
        << files[1] << "\n";
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
    if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
        (args.empty() ? err : out) << kUsage;
        return args.empty() ? 2 : 0;
    }
    if (args[0] == "list") return List(out);
    if (args[0] == "run") return Run(args, out, err);
    if (args[0] == "gallery") return Gallery(args, out, err);
    err << "unknown command '" << args[0] << "'\n" << kUsage;
    return 2;
}

}  // namespace host
