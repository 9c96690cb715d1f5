# Absorption mode: phase the bundled transient from the chirp of its script,
# keep the terms in a copy of the file (a second run needs no search), and
# put the magnitude and absorption spectra of the pair at m/z 524/525 side by
# side as pictures.
set -euo pipefail
"$VX" phase "$SAMPLE" --write-terms "$OUT/sample_phased.dat"
"$VX" phase "$OUT/sample_phased.dat" --json | grep -E '"(form|searched|zerodegrees|applied_degrees)"'
# The degree ladder's score is flat at its top, and with eight ions on a short
# transient it settles 22 degrees off; the vector method finds the tops.
"$VX" phase "$SAMPLE" --method vector --zerofills 3 -o "$OUT/sample_absorption.csv" --json |
  grep -E '"(applied_constant|applied_degrees)"'
# Switches of the expert panel: the excitation typed in instead of read from the
# script ("T2": start and end in kHz, rate in Hz/us, delay in ms, extra point),
# and the constant scored over the stretch of the zoomed pictures only.
"$VX" phase "$SAMPLE" --ask 20,500,150,0.5,F --json | grep -E '"(form|band_start|band_end|applied_degrees)"'
"$VX" phase "$SAMPLE" --score-range 90300,90900 --json | grep -E '"(band_start|band_end|applied_degrees)"'
"$VX" process "$SAMPLE" --zerofills 3 -o "$OUT/sample_magnitude.csv" > /dev/null
"$VX" peaks "$SAMPLE" --absorption --percent --threshold 5 --noise-threshold 1 -o "$OUT/sample_absorption.pks" | tail -1

# The pictures: the spectrum between 90.30 and 90.90 kHz, magnitude on the
# left and absorption on the right, each on its own height scale (a PNG
# written with the standard library alone).
python3 - "$OUT/sample_magnitude.csv" "$OUT/sample_absorption.csv" "$OUT/zoom_magnitude_absorption.png" <<'PY'
import struct, sys, zlib
W, H, LO, HI = 600, 300, 90300.0, 90900.0
def read(path):
    pts = []
    for line in open(path):
        p = line.strip().split(',')
        if len(p) == 2:
            f, y = float(p[0]), float(p[1])
            if LO <= f <= HI:
                pts.append((f, y))
    return pts
img = [[255] * (2 * W * 3) for _ in range(H)]
def dot(x, y, c):
    if 0 <= x < 2 * W and 0 <= y < H:
        img[y][3 * x:3 * x + 3] = c
def line(x0, y0, x1, y1, c):
    n = max(abs(x1 - x0), abs(y1 - y0), 1)
    for i in range(n + 1):
        dot(round(x0 + (x1 - x0) * i / n), round(y0 + (y1 - y0) * i / n), c)
for panel, path in enumerate(sys.argv[1:3]):
    pts = read(path)
    top = max(y for _, y in pts)
    bottom = min(0.0, min(y for _, y in pts))
    ox = panel * W
    def xy(f, y):
        return ox + 20 + int((f - LO) / (HI - LO) * (W - 40)), H - 30 - int((y - bottom) / (top - bottom) * (H - 60))
    zx, zy = xy(LO, 0.0)
    line(ox + 20, zy, ox + W - 20, zy, [170, 170, 170])
    for (f0, y0), (f1, y1) in zip(pts, pts[1:]):
        line(*xy(f0, y0), *xy(f1, y1), [0, 0, 160] if panel == 0 else [160, 0, 0])
raw = b''.join(b'\0' + bytes(row) for row in img)
def chunk(kind, data):
    return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data) & 0xffffffff)
with open(sys.argv[3], 'wb') as out:
    out.write(b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', 2 * W, H, 8, 2, 0, 0, 0))
              + chunk(b'IDAT', zlib.compress(raw, 9)) + chunk(b'IEND', b''))
print('wrote', sys.argv[3], '(magnitude left, absorption right, 90.30 to 90.90 kHz)')
PY

# Complex division: a blank of the same ions at half their abundance, made
# with the same chirp, divides the excitation's phase out with no phase model;
# the real quotient stands at 2 on every ion.
ions="$(dirname "$SAMPLE")/sample_ions.csv"
awk -F, 'BEGIN { OFS = "," } $1 !~ /^[0-9.]+$/ { print; next } { $2 = $2 / 2; print }' "$ions" > "$OUT/blank_ions.csv"
"$VX" simulate "$OUT/blank_ions.csv" -o "$OUT/blank.dat" --points 65536 --noise 0.002 --seed 43 --date 2026-11-23 > /dev/null
"$VX" phase "$SAMPLE" --divide "$OUT/blank.dat" -o "$OUT/quotient.csv" --dispersion "$OUT/quotient_imaginary.csv"
