#!/usr/bin/env bash
# rytri end to end on N uniform points in a 1000 x 1000 square (one 'x y z' line each, nine
# decimals, z a plane), written as OBJ: the phase times of --stats and the peak resident memory,
# run after run, alternating the binaries given; then the median of each figure per binary.
#
#   bench/rytri_timing.sh BIGSITE N ROUNDS RYTRI [RYTRI...]
#   e.g. bench/rytri_timing.sh build/release/tools/tests/rytri_bigsite 1000000 5 \
#            old/rytri build/release/tools/rytri
# BIGSITE is the test-site generator (tools/tests/BigSite.cpp). Needs GNU time (/usr/bin/time).
# Each run writes a new file: replacing an existing one adds the file system's own work to the
# write phase (ext4 allocates and starts writing the new data at a rename over a file, so that a
# crash leaves the old or the new; about 30-70 ms for the 80 MB here), which the tool keeps.
set -euo pipefail
if [ $# -lt 4 ]; then
    sed -n '2,9p' "$0"
    exit 2
fi
bigsite=$1 n=$2 rounds=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bigsite" "$n" 7 "$work/xy.txt" "$work/edges.txt"
awk '{ printf "%s %s %.3f\n", $1, $2, $1 * 0.01 + $2 * 0.02 }' "$work/xy.txt" >"$work/points.xyz"
rm "$work/xy.txt"
for round in $(seq "$rounds"); do
    for rytri in "$@"; do
        rm -f "$work/out.obj"
        /usr/bin/time -f "peak_KiB %M" "$rytri" "$work/points.xyz" -o "$work/out.obj" --stats \
            >"$work/log" 2>&1
        # --stats gives "N ms", or "X.Y s" from 10 s on: all in ms here.
        figures=$(grep -oE "(read|clean-up|triangulate|finish|write) [0-9.]+ m?s|peak_KiB [0-9]+" \
            "$work/log" | awk '{ print $1, ($3 == "s" ? $2 * 1000 : $2) }' | tr '\n' ' ')
        echo "$rytri round $round: $figures"
        echo "$rytri $figures" >>"$work/all"
    done
done
echo "medians over $rounds rounds, $n points:"
for rytri in "$@"; do
    line="$rytri:"
    for key in read clean-up triangulate finish write peak_KiB; do
        median=$(awk -v r="$rytri" '$1 == r' "$work/all" | grep -oE "$key [0-9]+" | awk '{ print $2 }' |
            sort -n | awk '{ v[NR] = $1 } END { print (NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2) }')
        line="$line $key $median"
    done
    echo "$line"
done
