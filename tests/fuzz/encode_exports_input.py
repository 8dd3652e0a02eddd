#!/usr/bin/env python3
"""Writes the exports_fuzzer input that makes one chosen call, for keeping a
finding as a named regression input (tests/fuzz/regressions/exports/, replayed
by scripts/fuzz.sh before fuzzing). The harness reads its integers from the
end of the input, most significant byte first, and the pixel bytes from the
front; the export's index is its place in `velomar list`.

  encode_exports_input.py VELOMAR OUT EXPORT WxHxC PAD INPLACE PARAM...

PARAM is `default`, `edge:K` (the K-th of the harness's edge values for the
parameter's type) or `raw:V` (a 32-bit integer V, for integer parameters).
Example: ... AdaptEqualize 256x181x3 0 0 raw:276 raw:258 edge:9 default
"""
import subprocess
import sys


def main(velomar, out, export, shape, pad, in_place, *params):
    listing = subprocess.run([velomar, "list"], capture_output=True, text=True, check=True).stdout
    exports = [line.split()[0] for line in listing.splitlines() if line[:1].isalpha()]
    w, h, c = (int(v) for v in shape.split("x"))
    tail = []

    def integral(value, lo, hi):  # as FuzzedDataProvider::ConsumeIntegralInRange
        span, rest, n = hi - lo, value - lo, 0
        while n < 8 and span >> (8 * n):
            n += 1
        tail.extend((rest >> (8 * (n - 1 - i))) & 0xFF for i in range(n))

    integral(exports.index(export), 0, len(exports) - 1)
    integral({1: 0, 3: 1, 4: 2}[c], 0, 2)
    big = w > 16 or h > 16
    integral(0 if big else 1, 0, 255)
    integral(w, 1, 300 if big else 16)
    integral(h, 1, 300 if big else 16)
    integral(int(pad), 0, 7)
    integral(int(in_place), 0, 255)
    for p in params:
        kind, _, value = p.partition(":")
        if kind == "default":
            integral(0, 0, 3)
        elif kind == "edge":  # 10 integer edges, 11 floating-point ones
            integral(2, 0, 3)
            integral(int(value), 0, 255)
        elif kind == "raw":
            integral(3, 0, 3)
            integral((int(value) + 2**31) % 2**32, 0, 2**32 - 1)  # drawn from INT32_MIN up
        else:
            sys.exit(f"unknown parameter form {p}")
    with open(out, "wb") as f:
        f.write(bytes(range(17, 33)) + bytes(reversed(tail)))


if __name__ == "__main__":
    if len(sys.argv) < 7:
        sys.exit(__doc__)
    main(*sys.argv[1:])
