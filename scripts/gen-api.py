#!/usr/bin/python3
"""Generates the API reference (docs/api.md), the Python binding's table of
prototypes and comments (python/velomar/_header.py) and the host program's
table of parameter ranges (tools/velomar/param_table.inc) from
include/velomar.h and the binding's parameter table (python/velomar/_table.py).

    gen-api.py          rewrites the three files
    gen-api.py --check  fails when a file differs from what it would write,
                        or when the parameter table and the header disagree
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
HEADER = ROOT / "include" / "velomar.h"
API_MD = ROOT / "docs" / "api.md"
HEADER_PY = ROOT / "python" / "velomar" / "_header.py"
TABLE_PY = ROOT / "python" / "velomar" / "_table.py"
HOST_TABLE = ROOT / "tools" / "velomar" / "param_table.inc"

DECL = re.compile(r"VL_API\s+(.+?)\s+VL_CALL\s+(\w+)\s*\((.*?)\)\s*;", re.S)


def comment_text(block):
    lines = []
    for line in block.splitlines():
        line = line.strip()
        line = re.sub(r"^/\*+\s?", "", line)
        line = re.sub(r"\s*\*+/$", "", line)
        line = re.sub(r"^\*\s?", "", line)
        lines.append(line)
    return "\n".join(lines).strip()


def parse_header(text):
    """Returns (sections, exports, statuses). exports maps each name to
    {section, restype, params [(ctype, name)], doc, group}; comments shared by
    consecutive declarations go to each of them, and a comment followed by a
    blank line and another comment is a note for the declarations after it,
    up to the next empty line after a declaration."""
    items = []  # (kind, payload, end)
    pos = 0
    token = re.compile(r"/\*.*?\*/|VL_API.*?;|[^\n]*\n", re.S)
    while pos < len(text):
        m = token.match(text, pos)
        chunk = m.group(0)
        if chunk.startswith("/*"):
            items.append(("comment", comment_text(chunk)))
        elif chunk.startswith("VL_API"):
            items.append(("decl", chunk))
        elif chunk.strip() == "":
            items.append(("blank", None))
        else:
            items.append(("other", chunk))
        pos = m.end()
    exports, sections = {}, []
    pending, note, last_doc, section = [], None, "", None
    for i, (kind, payload) in enumerate(items):
        if kind == "comment":
            if payload.startswith("----"):
                section = payload.strip("- ").strip()
                sections.append(section)
                pending, note = [], None
                continue
            k = i - 1
            while k >= 0 and items[k][0] == "blank":
                k -= 1
            if i - k > 2 and items[k][0] == "decl":
                note = None  # an empty line after a declaration closes a note's group
            j = i + 1
            while j < len(items) and items[j][0] == "blank":
                j += 1
            if j - i > 2 and j < len(items) and items[j][0] == "comment" and section:
                note = payload
            else:
                pending.append(payload)
        elif kind == "other":
            pending = []
        elif kind == "decl":
            m = DECL.search(payload)
            restype, name, args = m.group(1), m.group(2), m.group(3)
            params = []
            for arg in args.split(","):
                arg = " ".join(arg.split())
                am = re.match(r"(.*?)\s*(\w+)$", arg)
                params.append((am.group(1).replace(" *", "*"), am.group(2)))
            doc = "\n\n".join(pending) if pending else last_doc
            last_doc, pending = doc, []
            exports[name] = dict(section=section, restype=restype, params=params, doc=doc, note=note)
    statuses = {int(v): n for n, v in re.findall(r"#define (VL_STATUS_\w+)\s+(\d+)", text)}
    return sections, exports, statuses


def load_table():
    namespace = {}
    exec(compile(TABLE_PY.read_text(), str(TABLE_PY), "exec"), namespace)
    return namespace


def check_table(exports, table):
    """The binding's table names every export but Render, with the header's
    parameter names in the header's order."""
    problems = []
    ops = table["OPS"]
    wanted = set(exports) - {"Render"} - set(table["NOT_WRAPPED"])
    if set(ops) != wanted:
        problems.append("table and header differ: missing %s, extra %s"
                        % (sorted(wanted - set(ops)), sorted(set(ops) - wanted)))
    for name, op in ops.items():
        if name not in exports:
            continue
        header_names = [p for _, p in exports[name]["params"]]
        listed = [p.name for p in op.params]
        if [p for p in header_names if p in listed] != listed:
            problems.append(f"{name}: parameters {listed} not in the header's {header_names}")
        implicit = {"Src", "Dest", "Width", "Height", "Stride", "Kernel", "Out", "Reference", "Target",
                    "ReferenceWidth", "ReferenceHeight", "ReferenceStride"} | set(op.images)
        rest = [p for p in header_names if p not in listed and p not in implicit]
        if rest:
            problems.append(f"{name}: header parameters {rest} are not in the table")
    return problems


def describe_range(p):
    return p.describe()


def api_markdown(sections, exports, table):
    ops, layouts = table["OPS"], table["LAYOUT_NAMES"]
    out = ["# Velomar API reference", "",
           "Generated by `scripts/gen-api.py` from `include/velomar.h` and the Python binding's",
           "parameter table; CI fails when this page is not current. Each entry gives the C",
           "prototype, the header's comment, and the parameters with the defaults and allowed",
           "ranges that the Python binding (`python/velomar`) applies before calling.", "",
           "Conventions for all raw-form exports (`Src, Dest, Width, Height, Stride, ...`): the",
           "bytes per pixel are `Stride / Width` in integer division, so a grey buffer must",
           "have `Stride < 2 * Width`; the Python binding always passes `Stride = Width * channels`.",
           "Unless the comment says otherwise `Src` may equal `Dest`. Pixels an export leaves",
           "unwritten keep what `Dest` held; the Python binding starts `Dest` as a copy of `Src`.", ""]
    for section in sections:
        names = [n for n, e in exports.items() if e["section"] == section]
        if not names:
            continue
        out += [f"## {section}", ""]
        shown_note = None
        for name in names:
            e = exports[name]
            if e["note"] and e["note"] != shown_note:
                out += [e["note"], ""]
                shown_note = e["note"]
            args = ", ".join(f"{t} {n}" for t, n in e["params"])
            out += [f"### {name}", "", "```c", f"{e['restype']} {name}({args});", "```", "", e["doc"], ""]
            op = ops.get(name)
            if op is None:
                why = table["NOT_WRAPPED"].get(name, "Windows only; not in the Python binding.")
                out += [f"Python: {why}", ""]
                continue
            out += [f"Python: `velomar.{name}({op.signature()})`; layouts: "
                    + ", ".join(layouts[c] for c in op.channels) + ".", ""]
            if op.note:
                out += [op.note, ""]
            if op.params:
                out += ["| Parameter | Type | Default | Allowed |", "|---|---|---|---|"]
                for p in op.params:
                    out.append(f"| `{p.name}` | {p.ctype} | {p.default!r} | {p.describe()} |")
                out.append("")
    return "\n".join(out).rstrip() + "\n"


def header_module(exports, statuses):
    out = ['"""Prototypes and comments of include/velomar.h. Generated by',
           'scripts/gen-api.py; do not edit."""', "", "STATUSES = {"]
    out += [f"    {k}: {v!r}," for k, v in sorted(statuses.items())]
    out += ["}", "", "EXPORTS = {"]
    for name, e in exports.items():
        doc = e["doc"] if not e["note"] else e["note"] + "\n\n" + e["doc"]
        out.append(f"    {name!r}: ({e['restype']!r}, {tuple(e['params'])!r},\n        {doc!r}),")
    out += ["}", ""]
    return "\n".join(out)


def cpp_number(v):
    if v is None:
        return "kNoLimit"
    text = repr(float(v))
    return text[:-2] if text.endswith(".0") else text


def host_table(table):
    """One initializer per export: its name, the pixel layouts it takes (a
    mask of kGrey, kColour, kAlpha) and its parameters with their defaults and
    ranges, in the order the export takes them."""
    kinds = {"int32_t": "kInt", "double": "kDouble", "unsigned char": "kByte"}
    masks = {1: "kGrey", 3: "kColour", 4: "kAlpha"}
    out = ["// The parameters of every export the host can run, with defaults and allowed",
           "// ranges, and the layouts it takes. Generated by scripts/gen-api.py from the",
           "// Python binding's table (python/velomar/_table.py); do not edit."]
    for name, op in table["OPS"].items():
        layouts = " | ".join(masks[c] for c in op.channels) or "0"
        params = []
        for p in op.params:
            choices = "{" + ", ".join(cpp_number(c) for c in p.choices) + "}" if p.choices else "{}"
            params.append(f'{{"{p.name}", {kinds[p.ctype]}, {cpp_number(p.default)}, '
                          f'{{{cpp_number(p.lo)}, {cpp_number(p.hi)}, {str(p.open_lo).lower()}, {choices}}}}}')
        out.append(f'{{"{name}", {layouts}, {{' + ", ".join(params) + "}},")
    return "\n".join(out) + "\n"


def main():
    sections, exports, statuses = parse_header(HEADER.read_text())
    table = load_table()
    problems = check_table(exports, table)
    files = {API_MD: api_markdown(sections, exports, table), HEADER_PY: header_module(exports, statuses),
             HOST_TABLE: host_table(table)}
    if "--check" in sys.argv[1:]:
        for path, text in files.items():
            if not path.exists() or path.read_text() != text:
                problems.append(f"{path.relative_to(ROOT)} is not current: run scripts/gen-api.py")
        for p in problems:
            print("FAIL:", p)
        if not problems:
            print(f"API files current: {len(exports)} exports")
        return 1 if problems else 0
    for p in problems:
        print("FAIL:", p)
    for path, text in files.items():
        path.write_text(text)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
