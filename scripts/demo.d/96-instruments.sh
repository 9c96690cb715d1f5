# Other instruments and co-adding: four simulated transients co-added and the
# S/N gain of their sum, a chromatogram of their peak lists, the Vosk special
# analysis of a record cut into scans, a Thermo raw file refused with the
# conversion named, and the sample read back from its mzML export. (The
# readers of Odyssey, Melbar, Vosk and TOF files are shown by their tests;
# docs/formats.md.)
set -euo pipefail
printf '400.2, 0.01\n650.4, 0.01\n950.6, 0.01\n' >"$OUT/inst-ions.csv"
files=()
for k in 1 2 3 4; do
  "$VX" simulate "$OUT/inst-ions.csv" -o "$OUT/inst-$k.dat" --points 65536 --storage float --noise 0.02 --seed $k \
    --date 2026-11-23 >/dev/null
  files+=("$OUT/inst-$k.dat")
done
"$VX" coadd "${files[@]}" -o "$OUT/inst-sum.dat" --json | python3 -c \
  'import json,sys; j=json.load(sys.stdin); print("co-add:", j["title2"], "used", len(j["used"]), "total weight", j["total_weight"], "expcount", j["expcount"])'
for f in inst-1 inst-sum; do
  "$VX" peaks "$OUT/$f.dat" -o "$OUT/${f}_Z.pks" --sn --robust-noise --json | python3 -c \
    "import json,sys; j=json.load(sys.stdin); print('$f S/N:', ' '.join('%.1f@%.1f' % (p['sn'], p['mz']) for p in j['peaks'] if p['sn'] > 20))"
done
# Two-channel files: each channel summed apart, written as a two-channel file.
sed_files=()
for k in 1 2 3; do
  "$VX" simulate "$OUT/inst-ions.csv" -o "$OUT/inst-sed-$k.dat" --sed --points 16384 --storage float --noise 0.02 \
    --seed $k --date 2026-11-23 >/dev/null
  sed_files+=("$OUT/inst-sed-$k.dat")
done
"$VX" coadd --sed "${sed_files[@]}" -o "$OUT/inst-sed-sum.dat" --json | python3 -c \
  'import json,sys; j=json.load(sys.stdin); print("SED co-add:", j["title2"], "channels", 1 + ("channel2" in j), "expcount", j["expcount"])'
"$VX" lcms "$OUT/inst-1_Z.pks" "$OUT/inst-sum_Z.pks"
# The Vosk special analysis: the sum cut into 8 scans of 8192 points, COF per scan.
"$VX" vosk "$OUT/inst-sum.dat" --start 0 --points 8192 --step 8192 --process --cof 100 | head -4
# A Thermo raw file is refused, naming the conversion.
printf 'x' >"$OUT/run.raw"
"$VX" info "$OUT/run.raw" 2>&1 | head -1 || true
# Thermo data arrive as mzML: the sample exported as mzML and read back as an
# m/z profile (domain 5, the scan chosen by --scan), then its peaks.
"$VX" export "$SAMPLE" -o "$OUT/sample-profile.mzML" >/dev/null
"$VX" info "$OUT/sample-profile.mzML" --scan 1 --json | python3 -c \
  'import json,sys; j=json.load(sys.stdin); print("mzML:", j["format"], "domain", j["domain"], "filetype", j["filetype"], "scan", j["scan"], "of", j["scans"], "points", j["header"]["datacount"])'
"$VX" peaks "$OUT/sample-profile.mzML" -o "$OUT/sample-profile.pks" --json | python3 -c \
  'import json,sys; j=json.load(sys.stdin); top=sorted(j["peaks"], key=lambda p: -p["abundance"])[:8]; print("mzML peaks:", j["peakcount"], "largest at m/z", " ".join("%.4f" % p["mz"] for p in sorted(top, key=lambda p: p["mz"])))'
