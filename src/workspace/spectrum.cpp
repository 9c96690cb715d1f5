#include "workspace/spectrum.hpp"

namespace vx {

const char* xmode_label(int xmode) {
    switch (xmode) {
        case XMODE_POINT: return "data point";
        case XMODE_TIME: return "Time (msec)";
        case XMODE_MZ: return "m/z";
        case XMODE_FREQUENCY: return "Frequency (kHz)";
        case XMODE_CHROMATOGRAM: return "Time (s)";
        case XMODE_PEAKS: return "m/z";
        case XMODE_MZ_XVALUES: return "m/z";
        default: return "";
    }
}

void Set_Default_Parameters(Spectrum& s) {
    s.peakcount = 0;
    s.domain = DOMAIN_TIME;
    s.datacount = 16384;
    s.storedcount = 0;
    s.dbandwidth = 1000000.0;
    s.detectmode = DETECT_DIRECT;
    s.reffreq = 0.0;
    s.caltype = CALTYPE_TWO_TERM;
    s.Aterm = DEFAULT_ATERM;
    s.Bterm = DEFAULT_BTERM;
    s.Cterm = 0.0;
    s.calcoeff3 = 0.0;
    s.calcoeff4 = 0.0;
    s.Trapvoltage = 1.0;
    s.detectstart = 0.0;
    s.Zeroorder = 0.0;
    s.OptimizedFirstorder = 0.0;
    s.OptimizedSecondorder = 0.0;
    s.ZeroDegrees = 0;
    s.Phased_Intercept = 0;
    s.expcount = 1;
    s.exciteduration = -1.0;
    s.lowfreq = -1.0;
    s.highfreq = -1.0;
    s.origlowfreq = -1.0;
    s.orighighfreq = -1.0;
    s.sweeprate = -1.0;
    s.delay = -1.0;
    s.detectbw = -1.0;
    s.relativex = -1.0;
    s.usephasedelay = 1;
    s.phaseconstant = 0.0;
    s.phaseparams = 0;
    s.Truncations_stored = 0;
    s.Zerofills_stored = 1;
    s.collectedon = "Unknown";
    s.projectcode = "Unknown";
    s.collectedby = "Unknown";
    s.dateserial = 0;
    s.zoomed = 0;
    s.StartIndex = 0;
    s.storageinfo = 0;
    s.calfile = 0;
}

void SetDefaultParametersForNewSpectrum(Spectrum& s, int filetype) {
    s.sed = 0;
    s.lcmscurrent = -1;
    s.filetype = filetype;
    InitializeRephase(s);
    s.rephase_sections = 0;
    s.overRideThrashNoiseCalculation = 0;
    s.noisesigma = 0.0;
    s.noisemean = 0.0;
    s.kendrickleft = -1;
    s.kendricktop = -1;
}

void InitializeRephase(Spectrum& s) {
    s.Rephased = 0;
    s.rephase_initial = {};
    s.rephase_final = {};
    s.rephase_dterms = {};
}

void free_arrays(Spectrum& s) {
    s.data = {};
    s.data2 = {};
    s.xvalues = {};
    s.peaks = {};
    s.peakcount = 0;
    s.assigned = {};
    s.unassigned = {};
    s.assignedcount = s.unassignedcount = 0;
    s.realdata64 = {};
    s.imagdata64 = {};
    s.realdata = {};
    s.imagdata = {};
    s.phase = {};
    s.xcaldata = {};
    s.xcalnoise = {};
    s.xcalbaseline = {};
    s.rephase_dterms = {};
    s.rephase_initial = {};
    s.rephase_final = {};
    s.scorearray = {};
    s.scoreA = {};
    s.scoreB = {};
    s.walking = {};
    s.calibrants = {};
    s.calibrantcount = 0;
    s.lcmsfiles = {};
    s.lcmscount = 0;
}

void SetDefaultWalkingCalVals(Spectrum& s, int row) {
    if (row < 0) return;
    if (static_cast<std::size_t>(row) >= s.walking.size()) s.walking.resize(static_cast<std::size_t>(row) + 1);
    s.walking[static_cast<std::size_t>(row)] = WalkingRegion{};
}

}  // namespace vx
