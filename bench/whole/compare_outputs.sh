#!/usr/bin/env bash
# Whole-output differential: exports a corpus of random pictures with two
# builds of mivo4 (say, the last release's and this one) under the same
# options and compares the files byte for byte. Pictures: 1-bit (PBM), 8-bit
# grey (PGM), 24-bit (PPM) and palette PNG, odd and even sizes, widths around
# multiples of 8, 32 and 64; options: own size, shrinking, stretching, boxes.
# usage: bench/whole/compare_outputs.sh OLD_MIVO4 NEW_MIVO4 [COUNT] [SEED]
set -euo pipefail
old=${1:?usage: compare_outputs.sh OLD_MIVO4 NEW_MIVO4 [COUNT] [SEED]}
new=${2:?usage: compare_outputs.sh OLD_MIVO4 NEW_MIVO4 [COUNT] [SEED]}
count=${3:-120}
seed=${4:-16}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

python3 - "$work" "$count" "$seed" <<'PY'
import os, random, sys
work, count, seed = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
rng = random.Random(seed)
edges = [m + d for m in (8, 32, 64, 128, 256, 512) for d in (-1, 0, 1)]
def size():
    w = rng.choice(edges + [rng.randint(1, 600)])
    h = rng.choice([rng.randint(1, 500), rng.randint(1, 500) | 1, edges[rng.randrange(len(edges))]])
    return w, h
for i in range(count):
    kind = ("pbm", "pgm", "ppm", "ppm")[i % 4]
    w, h = size()
    # Smooth pictures with noise: long runs for the coder, every grey for the dither.
    fx, fy, noise = rng.uniform(0.002, 0.2), rng.uniform(0.002, 0.2), rng.randint(0, 80)
    if kind == "pbm":
        stride = (w + 7) // 8
        data = bytearray(rng.getrandbits(8) if rng.random() < 0.3 else 0 for _ in range(stride * h))
        head = b"P4\n%d %d\n" % (w, h)
    else:
        ch = 1 if kind == "pgm" else 3
        data = bytearray(w * h * ch)
        k = 0
        for y in range(h):
            for x in range(w):
                for c in range(ch):
                    v = 128 + 100 * ((x * fx + y * fy * (c + 1)) % 2 - 1) + rng.randint(-noise, noise)
                    data[k] = max(0, min(255, int(v)))
                    k += 1
        head = (b"P5" if ch == 1 else b"P6") + b"\n%d %d\n255\n" % (w, h)
    with open(os.path.join(work, "pic%03d.%s" % (i, kind)), "wb") as f:
        f.write(head + data)
PY
# A few palette PNGs made from the colour pictures.
if command -v gm >/dev/null; then
  for f in $(ls "$work"/pic*.ppm | head -8); do gm convert "$f" -colors 16 "${f%.ppm}-pal.png"; done
fi

options=(
  "--size user --source-dpi 300 --dpi 300"
  "--size user --source-dpi 200 --dpi 300"
  "--size user --source-dpi 300 --dpi 150"
  "--size user --source-dpi 96 --dpi 200"
  "--size user --width 2 --height 3 --dpi 200"
  "--size picture --dpi 300"
)
total=0; differ=0; failed=0; refused=0
for pic in "$work"/pic*; do
  for o in "${options[@]}"; do
    total=$((total + 1))
    # shellcheck disable=SC2086
    rc_old=0; "$old" export $o "$pic" "$work/old.cal" >/dev/null 2>&1 || rc_old=$?
    # shellcheck disable=SC2086
    rc_new=0; "$new" export $o "$pic" "$work/new.cal" >/dev/null 2>&1 || rc_new=$?
    if [ "$rc_old" != "$rc_new" ]; then
      echo "exit codes differ ($rc_old, $rc_new): $(basename "$pic") $o"; failed=$((failed + 1)); continue
    fi
    if [ "$rc_old" != 0 ]; then refused=$((refused + 1)); continue; fi
    if ! cmp -s "$work/old.cal" "$work/new.cal"; then
      echo "outputs differ: $(basename "$pic") $o"; differ=$((differ + 1))
    fi
    rm -f "$work/old.cal" "$work/new.cal"
  done
done
echo "$total exports compared ($refused refused by both alike): $differ with different bytes, $failed with different exit codes"
[ "$differ" = 0 ] && [ "$failed" = 0 ]
