// The segment walk shared by the traditional search, its parallel and profile
// forms and the candidate scan of the reborn picker.
//
// The walk runs over the three-point smoothed profile s(i) = y(i-1)/4 + y(i)/2 +
// y(i+1)/4: it climbs while the smoothed next value exceeds the last raw height
// reached, then descends while the smoothed profile keeps falling. The mix of
// smoothed and raw values in the climb is what the stored thresholds were tuned
// on, so it stays.
#pragma once

namespace vx {

struct WalkSegment {
    long start = 0;  // first point
    long top = 0;    // where the climb stopped
    long end = 0;    // where the descent stopped
    long apex = 0;   // largest raw sample, see walk_segments
    double h = 0.0;  // raw height at the top of the climb
};

inline double smooth3(const float* y, long i) {
    return y[i - 1] / 4.0 + y[i] / 2.0 + y[i + 1] / 4.0;
}

// One climb and descent from pos, bounded by to. Reads y(pos) .. y(to + 1);
// end is at most to + 1 and always beyond pos.
inline WalkSegment climb_descend(const float* y, long pos, long to) {
    WalkSegment seg;
    seg.start = pos;
    double h = 0.0;
    while (pos < to && smooth3(y, pos + 1) > h) {
        h = y[pos + 1];
        ++pos;
    }
    seg.top = pos;
    seg.h = h;
    long j = pos + 1;
    while (j < to && smooth3(y, j) > smooth3(y, j + 1)) ++j;
    seg.end = j;
    return seg;
}

// The traditional walk from `from` to `to`: segments narrower than min_width
// points or lower than the noise level are passed over while the position is
// below to - 3. The apex of a segment is its largest raw sample, starting from
// the top of the climb; only a strictly larger sample replaces it. The caller
// must guarantee 0 <= from and to + 2 < sample count. noise_level is read anew
// for every segment (S/N searches renew it during the walk).
template <class OnSegment>
void walk_segments(const float* y, long from, long to, double min_width, const double& noise_level,
                   OnSegment&& on_segment) {
    long pos = from;
    while (pos < to) {
        WalkSegment seg;
        do {
            seg = climb_descend(y, pos, to);
            pos = seg.end;
        } while (pos < to - 3 && (static_cast<double>(seg.end - seg.start + 1) < min_width || seg.h < noise_level));
        seg.apex = seg.top;
        for (long i = seg.start; i <= seg.end; ++i)
            if (y[i] > y[seg.apex]) seg.apex = i;
        on_segment(seg);
    }
}

// The parabola through (-1, ym), (0, y0), (1, yp): c0 + c1 x + c2 x^2.
struct Parabola {
    double c0 = 0.0, c1 = 0.0, c2 = 0.0;
};
inline Parabola parabola_through(double ym, double y0, double yp) {
    return {y0, (yp - ym) / 2.0, (yp + ym) / 2.0 - y0};
}

}  // namespace vx
