#include "phasing/bruker_phase.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <fmt/format.h>
#include <tbb/info.h>
#include <tbb/task_arena.h>

#include "formats/bruker.hpp"
#include "phasing/halfapod.hpp"
#include "phasing/phase_search.hpp"
#include "platform/ui.hpp"
#include "workspace/processing.hpp"

namespace vx {
namespace {
constexpr double PI = std::numbers::pi;
}  // namespace

bool is_bruker_method_record(const Spectrum& s) {
    return s.filetype == FILETYPE_BRUKER && s.domain == DOMAIN_TIME && !s.filename.empty() &&
           bruker_layout(bruker_directory_of(s.filename)) == BrukerLayout::Method;
}

std::size_t bruker_leading_points(const std::vector<float>& x) {
    std::size_t k = 0;
    while (k < x.size() && x[k] == 0.0f) ++k;
    if (k == x.size()) return 0;
    const std::size_t window = std::min<std::size_t>(x.size(), k + 256);
    float top = 0.0f;
    for (std::size_t i = k; i < window; ++i) top = std::max(top, std::fabs(x[i]));
    while (k < window && std::fabs(x[k]) < 0.1f * top) ++k;
    return k;
}

int phase_bruker_spectrum(Spectrum& s, const PhaseRunOptions& o, Ui& ui, PhaseRunResult* result) {
    PhaseRunResult local;
    PhaseRunResult& res = result ? *result : local;
    res = PhaseRunResult{};
    if (s.detectmode == DETECT_QUADRATURE) {
        ui.MessagePopup("Phasing Error", "Only a real (direct or heterodyne) transient can be phased.");
        return -1;
    }
    if (o.harmonic3 || o.rephase_sections > 0) {
        ui.MessagePopup("Phasing Error", "Third-harmonic phasing and section rephasing are not offered for Bruker "
                                         "acquisitions.");
        return -1;
    }
    BrukerExcitation e;
    if (read_bruker_excitation(s.filename, e, ui) < 0) return -15;
    for (const std::string& n : e.notes) ui.Console(n + "\n");
    if (!(s.dbandwidth > 0.0) || !std::isfinite(s.dbandwidth)) {
        ui.MessagePopup("Insufficient information to phase data.",
                        "Phasing can not continue with current information. Exiting.");
        return -15;
    }
    if (s.datacount < 2048 || s.data.size() < static_cast<std::size_t>(s.datacount)) {
        ui.MessagePopup("Phasing Error", fmt::format("{} samples are too few to phase.", s.datacount));
        return -1;
    }
    apply_bruker_excitation(e, s);

    // The chain before the transform. The digitiser's first samples (zeros,
    // then its filter filling) are no part of the signal: they are moved out
    // and their time goes into the delay, the length staying as it was.
    if (o.truncations > 0) Truncate(s, o.truncations);
    if (o.zero_dc) Baseline_Correct(s);
    const std::size_t n0 = static_cast<std::size_t>(s.datacount);
    // Given terms apply to the transient as stored, unless told otherwise.
    const std::size_t skip = o.leading_points >= 0 ? static_cast<std::size_t>(o.leading_points)
                             : o.terms           ? 0
                                                 : bruker_leading_points(s.data);
    if (skip >= n0 / 2) {
        ui.MessagePopup("Phasing Error", fmt::format("{} leading samples of {} cannot be left out.", skip, n0));
        return -1;
    }
    if (skip > 0) {
        std::copy(s.data.begin() + static_cast<std::ptrdiff_t>(skip), s.data.begin() + static_cast<std::ptrdiff_t>(n0),
                  s.data.begin());
        std::fill(s.data.begin() + static_cast<std::ptrdiff_t>(n0 - skip), s.data.begin() + static_cast<std::ptrdiff_t>(n0),
                  0.0f);
    }
    res.skipped_points = static_cast<long long>(skip);
    const double skipped_time = static_cast<double>(skip) / (2.0 * s.dbandwidth);
    if (o.apodization != 0 && HalfApod(s, o.apodization, o.exclude_excite ? 1 : 0, ui) < 0) return -1;
    if (o.zerofills > 0 && Zerofill(s, o.zerofills, ui) < 0) return -1;
    if (Fourier_Transform_Phased(s, 0, ui) < 0) return -1;
    const long long N = s.datacount;

    PhaseInputs in;
    in.lowfreq = s.lowfreq;
    in.highfreq = s.highfreq;
    in.sweeprate = s.sweeprate;
    in.delay = e.delay + skipped_time;
    in.excitestart = e.sweep_time;
    in.bandwidth = s.dbandwidth;
    in.relativex = s.relativex;
    in.special = o.special;
    in.extra_point = o.extra_point;
    PhaseModel m = phase_model_for(PhaseEntry::PhasingStandard, in);
    s.delay = in.delay;
    res.form = "final";
    res.excitation = "method";

    long long start = 0, end = 0;
    phase_band(e.low_hz, e.high_hz, 1.0, s.hzppt, N, start, end);
    end = std::min(end, N);
    res.band_start = start;
    res.band_end = end;
    res.testfit = phase_threshold(s.realdata, s.imagdata, start, end - 1);
    const int workers = o.workers > 0 ? o.workers : phase_thread_count();

    const bool given = o.terms.has_value();
    if (given) {
        const auto& t = *o.terms;
        m.Aterm = t[0];
        m.Bterm = t.size() > 1 ? t[1] : 0.0;
        m.Cterm = t.size() > 2 ? t[2] : 0.0;
        m.bracket = m.Bterm / (2.0 * PI);
        res.form = "terms";
        res.excitation = "given";
    } else if (o.chirp_seek != 0) {
        // The rate and delay searched on the spectrum around the method's
        // values: the stepped sweep and the electronics leave the method's
        // curve a little off (on the real acquisition 0.1 % in rate and 55 us
        // in delay, which turns lines 40 kHz from the tallest by a quarter
        // turn). When the method did not give the whole delay (no pulse
        // program or no pre-scan delay) the delay is searched over
        // milliseconds, since the pre-scan delay alone is a few.
        ChirpSeekOptions so;
        so.reference = m.reference;
        so.rate = signed_sweep_rate(s.sweeprate, s.lowfreq, s.highfreq);
        so.delay = m.bracket;
        so.search_rate = true;
        so.workers = workers;
        if (!e.complete) {
            so.delay_span = 10e-3;
        }
        const ChirpSeekResult sr = chirp_seek(s.realdata.data(), s.imagdata.data(), s.hzppt,
                                              static_cast<std::size_t>(start), static_cast<std::size_t>(end), so);
        res.method_score = sr.start_score;
        res.seek_score = sr.score;
        if (sr.evaluations > 0 && sr.score > sr.start_score) {
            m.Aterm = PI / (sr.rate * 1e6);
            m.bracket = sr.delay;
            m.Bterm = 2.0 * PI * sr.delay;
            res.excitation = "searched";
        }
        ui.Console(fmt::format("Sweep {:.6f} Hz/us, delay {:.3f} us: coherence {:.4f} (method {:.4f}, {} points, {} "
                               "trials)\n",
                               PI / m.Aterm / 1e6, m.bracket * 1e6, sr.score, sr.start_score, sr.points,
                               sr.evaluations));
    }
    res.sweep_rate = m.Aterm != 0.0 ? PI / m.Aterm / 1e6 : 0.0;

    build_phase_curve(m, s.hzppt, static_cast<std::size_t>(N), 0, static_cast<std::size_t>(N), s.phase);
    const std::size_t band = static_cast<std::size_t>(std::max(0LL, end - start));
    std::vector<float> P, Q;
    {
        tbb::task_arena arena(std::clamp(workers, 1, std::max(1, tbb::info::default_concurrency())));
        arena.execute([&] { turn_by_model(s.realdata, s.imagdata, m, s.hzppt, P, Q); });
    }
    const PhaseScoreWorkers scorer =
        PhaseScoreWorkers::over(P.data() + start, Q.data() + start, band, res.testfit, workers);
    apply_zero_order(s, o, given, false, res.sweep_rate, 1.0, scorer, P, Q, m, res);
    s.Phased_Datacount = static_cast<std::int32_t>(N);
    if (o.baseline && o.median_baseline)
        remove_median_baseline(s.data, 1024);
    else if (o.baseline)
        remove_phase_baseline(s.data, 1.0, o.roll, 10, -150000.0);
    s.domain = DOMAIN_FREQUENCY;
    return 0;
}

}  // namespace vx
