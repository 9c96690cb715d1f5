# THRASH: a simulated protein (ubiquitin, charges 8 to 10, isotope lines at each
# level's mean mass) deconvolved to monoisotopic masses. The averagine model and
# the charge of one cluster first, then the scan's table, its files and the
# true masses beside it.
set -euo pipefail
"$VX" averagine 952.08 --charge 9 > "$OUT/model.txt"
head -n 8 "$OUT/model.txt"
printf 'name,formula,zmin,zmax,abundance,decay\nubiquitin,C378H629N105O118S1,8,10,0.05,1.0\n' > "$OUT/proteins.csv"
printf 'UBQ 76\nMQIFVKTLTGKTITLEVEPSDTIENVKAKIQDKEGIPPDQQRLIFAGKQLEDGRTLSDYNIQKESTLHLVLRLRGG\n' > "$OUT/ubiquitin.txt"
"$VX" simulate --proteins "$OUT/proteins.csv" --truth "$OUT/truth.csv" -o "$OUT/ubiquitin.dat" \
    --points 524288 --bandwidth 250000
cat "$OUT/truth.csv"
"$VX" charge "$OUT/ubiquitin.dat" --range 951.9:953.1 > "$OUT/charge.txt"
head -n 1 "$OUT/charge.txt"
"$VX" thrash "$OUT/ubiquitin.dat" --low-mass 800 --high-mass 1100 --tpk --csv "$OUT/ubiquitin_isos.csv" \
    --sequence "$OUT/ubiquitin.txt" --tolerance 0.05
head -n 3 "$OUT/ubiquitin_isos.csv"
"$VX" thrash --load "$OUT/ubiquitin.dat.tpk" > "$OUT/loaded.txt"
head -n 4 "$OUT/loaded.txt"
# The plot panel's deconvolution of the same spectrum onto a neutral-mass axis.
"$VX" deconvolve "$OUT/ubiquitin.dat" --lowz --range 800:1100 -o "$OUT/ubiquitin_masses.txt"
# The plot panel's Zdet and the "Analysis Report" of a stretch of baseline.
"$VX" deconvolve "$OUT/ubiquitin.dat" --range 950:956 --zdet --report 950.0:951.5
