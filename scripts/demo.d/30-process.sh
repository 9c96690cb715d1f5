# Process the bundled transient as the "Process" command does (Hann, one
# zero-fill, FFT/Magnitude) and export the spectrum as text and binary.
set -euo pipefail
"$VX" process "$SAMPLE" -o "$OUT/sample_spectrum.csv"
"$VX" process "$SAMPLE" -o "$OUT/sample_spectrum.bin"
"$VX" process "$SAMPLE" --overwrite -o "$OUT/sample_spectrum.xy.bin"
"$VX" process "$SAMPLE" --mz -o "$OUT/sample_spectrum_mz.csv"
head -n 5 "$OUT/sample_spectrum.csv"
echo "strongest peaks (m/z, magnitude); the ions of data/sample_ions.csv:"
# Local maxima of the m/z export, strongest first.
tr -d '\r' < "$OUT/sample_spectrum_mz.csv" | awk -F, 'NR > 4 {
    if (n >= 2 && y1 > y0 && y1 >= $2 && y1 > 2000) printf "%12.4f %12.1f\n", x1, y1
    x0 = x1; y0 = y1; x1 = $1; y1 = $2; n++ }' | sort -k2 -gr | head -n 8
# A quadrature transient of positive and negative ions, split on processing.
"$VX" simulate data/sample_ions.csv --detect quadrature --points 65536 --noise 0.02 --seed 7 \
    -o "$OUT/quadrature.dat"
"$VX" process "$OUT/quadrature.dat" -o "$OUT/quadrature.csv"
ls -l "$OUT"/quadrature*.csv
