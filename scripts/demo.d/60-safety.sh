# Nothing of the user's is lost: a command never replaces its own input, an
# archive that fails its CRC check replaces nothing, a file cut short is
# refused with its name, and a device is refused instead of read forever.
set -uo pipefail
d="$OUT/safety"
rm -rf "$d"; mkdir -p "$d"
cp "$SAMPLE" "$d/run.csv"
echo "-- process run.csv -o run.csv (refused, run.csv unchanged):"
"$VX" process "$d/run.csv" -o "$d/run.csv" && exit 1
cmp "$SAMPLE" "$d/run.csv" && echo "run.csv intact"
echo "-- a cut-off transfer:"
head -c 50000 "$SAMPLE" > "$d/cut.dat"
"$VX" info "$d/cut.dat" && exit 1
echo "-- an archive damaged after packing, over an existing s.dat:"
cp "$SAMPLE" "$d/s.dat"
"$VX" zip --keep "$d/s.dat" >/dev/null
python3 - "$d/s.dat.Z" <<'PY'
import sys
p = sys.argv[1]; b = bytearray(open(p, 'rb').read()); b[len(b) // 2] ^= 0x55; open(p, 'wb').write(b)
PY
echo "old contents" > "$d/s.dat"
"$VX" unzip "$d/s.dat.Z" && exit 1
echo "s.dat still holds: $(cat "$d/s.dat")"
echo "-- /dev/zero:"
timeout 20 "$VX" info /dev/zero; test $? -ne 124 && echo "refused at once"
exit 0
