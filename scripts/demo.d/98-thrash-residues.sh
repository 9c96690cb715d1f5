# THRASH's subtraction of a reported cluster: the literal one takes the model's
# share of each peak and leaves a faint copy that is reported again 1-2 Da low;
# --clean-residues takes away whole the peaks the model explains to at least half.
set -euo pipefail
printf 'name,formula,zmin,zmax,abundance,decay\nubiquitin,C378H629N105O118S1,7,11,0.05,1.0\n' > "$OUT/residues.csv"
"$VX" simulate --proteins "$OUT/residues.csv" --truth "$OUT/residues-truth.csv" -o "$OUT/residues.dat" \
    --points 1048576 --bandwidth 250000 >/dev/null
cut -d, -f1-4 "$OUT/residues-truth.csv" | head -n 3
for opt in "" "--clean-residues"; do
  echo "thrash $opt:"
  "$VX" thrash "$OUT/residues.dat" --low-mass 700 --high-mass 1300 --csv "$OUT/residues$opt.csv" $opt >/dev/null
  cut -d, -f2,7,16 "$OUT/residues$opt.csv"
done
