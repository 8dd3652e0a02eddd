// Border runs of a window summed one addition at a time, in time that does not
// grow with the run's length.
#include "blur/box_mean.h"

#include <cfloat>
#include <cmath>

namespace velomar {

namespace {

// Whole cycles added without a shortcut before the run gives up waiting for
// the sum to settle.
constexpr int kMaxUnsettledCycles = 512;

struct Cycle {
    const double* v;
    ptrdiff_t step;
    int32_t n;
    // s + v[n-1] + v[n-2] + ... + v[0], one addition at a time.
    double Add(double s) const {
        for (int32_t i = n - 1; i >= 0; --i) s += v[i * step];
        return s;
    }
};

bool SameValue(double a, double b) { return a == b || (a != a && b != b); }

// How many further cycles, after s0 -> s1 -> s2, are certain to add exactly
// s2 - s1 each. Inside one binade every sum lands on the same grid of spacing
// u, so an addition moves the sum by the addend rounded to that grid, which
// depends on the sum only through its parity on the grid (ties go to even).
// Two consecutive cycles that moved by the same amount have covered both
// parities the sum can start a cycle with, so every later cycle moves by that
// amount too, as long as every partial sum stays inside the binade: margin
// bounds how far a partial sum strays from the cycle's start.
int64_t CyclesThatRepeat(double s0, double s1, double s2, double margin, int64_t left) {
    if (!std::isfinite(s0) || !std::isfinite(s1) || !std::isfinite(s2)) return 0;
    if (s0 == 0 || (s0 < 0) != (s1 < 0) || (s0 < 0) != (s2 < 0)) return 0;
    const double a0 = std::fabs(s0), a1 = std::fabs(s1), a2 = std::fabs(s2);
    if (a0 < DBL_MIN) return 0;
    int e0, e1, e2;
    std::frexp(a0, &e0);
    std::frexp(a1, &e1);
    std::frexp(a2, &e2);
    if (e0 != e1 || e0 != e2) return 0;
    const double d = a2 - a1;  // exact: both lie in one binade
    if (d != a1 - a0 || d == 0) return 0;
    const double lo = std::ldexp(1.0, e0 - 1), hi = std::ldexp(1.0, e0);
    const double u = std::ldexp(1.0, e0 - 53);
    if (!(margin < hi)) return 0;
    // The run is monotonic in magnitude: check its low end and bound its high
    // end (one cycle's spacing kept in hand for rounding in this estimate).
    double room;
    if (d > 0) {
        if (a0 - margin < lo) return 0;
        room = (hi - margin - a2 - u) / d - 1;
    } else {
        if (a0 + margin >= hi) return 0;
        room = (a2 - margin - lo) / -d - 1;
    }
    if (!(room >= 1)) return 0;
    return room >= double(left) ? left : static_cast<int64_t>(room);
}

}  // namespace

double AddDescendingCycle(double s, const double* v, ptrdiff_t step, int32_t n, int32_t start,
                          int64_t count) {
    // The partial cycle from start down to 0.
    for (int32_t i = start; i >= 0 && count > 0; --i, --count) s += v[i * step];
    if (count <= 0) return s;
    const Cycle cycle{v, step, n};
    int64_t cycles = count / n;
    const int32_t tail = static_cast<int32_t>(count % n);
    // Partial sums of a cycle stay within the sum of magnitudes (plus one
    // rounding per addition) of where the cycle began.
    double absSum = 0;
    for (int32_t i = 0; i < n; ++i) absSum += std::fabs(v[i * step]);
    const double margin = absSum * (1 + 0x1p-40);
    int unsettled = 0;
    while (cycles > 0) {
        if (cycles < 3) {
            s = cycle.Add(s);
            --cycles;
            continue;
        }
        if (unsettled >= kMaxUnsettledCycles) {
            s += double(cycles) * cycle.Add(0.0);
            break;
        }
        const double s1 = cycle.Add(s);
        if (SameValue(s1, s)) break;  // a fixed point: every later cycle gives s again
        const double s2 = cycle.Add(s1);
        cycles -= 2;
        // The grid spacing grows with the sum; so does the rounding slack.
        const double slack = margin + (n + 2) * DBL_EPSILON * std::fmax(std::fabs(s), std::fabs(s2));
        const int64_t jump = CyclesThatRepeat(s, s1, s2, slack, cycles);
        if (jump > 0) {
            s = s2 + double(jump) * (s2 - s1);  // exact: lands on the binade's grid
            cycles -= jump;
        } else {
            s = s2;
            unsettled += 2;
        }
    }
    for (int32_t i = n - 1; i >= n - tail; --i) s += v[i * step];
    return s;
}

double WindowSum(const double* v, ptrdiff_t step, int32_t n, int64_t Radius, int32_t EdgeMode) {
    const bool replicate = EdgeMode == EDGE_REPLICATE;
    double s = 0.0;
    // Positions -Radius .. -1: index 0 again, or Radius mod n counting down.
    if (replicate)
        s = AddDescendingCycle(s, v, step, 1, 0, Radius);
    else
        s = AddDescendingCycle(s, v, step, n, static_cast<int32_t>(Radius % n), Radius);
    // Positions 0 .. min(Radius, n - 1) map to themselves.
    const int64_t inside = Radius < n - 1 ? Radius : n - 1;
    for (int64_t p = 0; p <= inside; ++p) s += v[p * step];
    // Positions n .. Radius: index n - 1 again, or n - 2 counting down.
    if (Radius >= n) {
        const int64_t count = Radius - n + 1;
        if (replicate)
            s = AddDescendingCycle(s, v + (n - 1) * step, step, 1, 0, count);
        else
            s = AddDescendingCycle(s, v, step, n, n >= 2 ? n - 2 : 0, count);
    }
    return s;
}

}  // namespace velomar
