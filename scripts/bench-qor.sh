#!/usr/bin/env bash
# Times `qor pack` (one thread per processor) and `qor unpack` against
# pigz -6 with as many threads, gzip -1, gzip -6 and zstd -3 (where installed)
# on one file: throughput of uncompressed bytes and the ratio. Then a scaling
# table of `qor pack` with 1, 2, ... threads up to the processors (1 and 2 at
# least), each checked to give the same file as 1 thread.
#
#   bash scripts/bench-qor.sh [SIZE_MIB] [RUNS]     (defaults: 256 MiB, 3 runs; the median is shown)
#
# The sample is made once in a temporary directory: a mix of numbered text
# records, base64 text and random bytes, so that the ratio is neither that of
# text nor that of noise. Builds qor first if needed. Other work on the
# machine slows every row alike only when it is steady: the load average is
# printed before and after, and the scaling table shows how many processors
# each run could use. With the kernel's autogroup scheduling every session
# gets an equal share of the processors whatever its number of threads, so
# on a shared machine run it in a session of its own with more weight (root):
#   setsid bash -c 'echo -10 > /proc/self/autogroup; bash scripts/bench-qor.sh'
# /usr/bin/time (Debian's "time") measures the processor time.
set -euo pipefail
cd "$(dirname "$0")/.."
size_mib="${1:-256}"
runs="${2:-3}"
qor="$PWD/build/default/tools/qor/qor"
[ -x "$qor" ] || { cmake --preset default >/dev/null && cmake --build build/default --target qor; }
threads=$(nproc)

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
python3 - "$work/sample" "$size_mib" <<'PY'
import base64, random, sys
path, mib = sys.argv[1], int(sys.argv[2])
rng = random.Random(2026)
words = [w.encode() for w in "alpha beta gamma delta sensor reading value status ok warn fail".split()]
with open(path, "wb") as out:
    for _ in range(mib * 16):  # pieces of 64 KiB
        kind = rng.random()
        if kind < 0.6:
            piece = b"".join(b"%08d %s %s %.3f\n" % (rng.randrange(10**8), rng.choice(words), rng.choice(words),
                                                        rng.random() * 1000) for _ in range(2400))
        elif kind < 0.85:
            piece = base64.b64encode(rng.randbytes(49152))
        else:
            piece = rng.randbytes(65536)
        out.write(piece[:65536].ljust(65536, b"\n"))
PY
bytes=$(stat -c %s "$work/sample")
cat "$work/sample" > /dev/null  # in the page cache before the first run

# Median wall time in seconds of a shell command over the runs.
median_seconds() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    bash -c "$1"
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'
}

row() {  # name, compress command, decompress command, compressed file
  local name="$1" pack="$2" unpack="$3" packed="$4"
  local tp tu
  tp=$(median_seconds "$pack")
  tu=$(median_seconds "$unpack")
  cmp -s "$work/sample" "$work/back" || { echo "$name: round trip differs" >&2; exit 1; }
  local csize
  csize=$(stat -c %s "$packed")
  awk -v n="$name" -v b="$bytes" -v c="$csize" -v tp="$tp" -v tu="$tu" 'BEGIN {
    printf "%-12s %9.2f s %8.1f MB/s %9.2f s %8.1f MB/s %8.1f %%\n", n, tp, b / tp / 1e6, tu, b / tu / 1e6, 100 * c / b }'
  rm -f "$packed" "$work/back"
}

echo "load before: $(uptime)"
echo "sample: $bytes bytes, $threads processors, median of $runs runs, one process each (wall time)"
printf '%-12s %20s %22s %10s\n' "" "compress" "decompress" "size"
s="$work/sample"
row "qor -j $threads" "'$qor' pack --quiet --force -j $threads '$s' '$s.qz'" \
  "'$qor' unpack --quiet --force '$s.qz' '$work/back'" "$s.qz"
if command -v pigz > /dev/null; then
  row "pigz -6 -p $threads" "pigz -6 -p $threads -c '$s' > '$s.gz'" "pigz -d -p $threads -c '$s.gz' > '$work/back'" "$s.gz"
fi
row "gzip -1" "gzip -1 -c '$s' > '$s.gz'" "gzip -d -c '$s.gz' > '$work/back'" "$s.gz"
row "gzip -6" "gzip -6 -c '$s' > '$s.gz'" "gzip -d -c '$s.gz' > '$work/back'" "$s.gz"
if command -v zstd > /dev/null; then
  row "zstd -3" "zstd -q -3 -c '$s' > '$s.zst'" "zstd -q -d -c '$s.zst' > '$work/back'" "$s.zst"
fi

# Median over the runs of a shell command: "wall-seconds cpu-seconds" (user
# and system time of the command and its children), the run of median wall time.
median_wall_and_cpu() {
  local lines=()
  for _ in $(seq "$runs"); do
    /usr/bin/time -f "%e %U %S" -o "$work/time" bash -c "$1"
    lines+=("$(awk '{ print $1, $2 + $3 }' "$work/time")")
  done
  printf '%s\n' "${lines[@]}" | sort -g | awk '{a[NR]=$0} END {print a[int((NR+1)/2)]}'
}

# Scaling of qor pack with its threads; every file must equal the 1-thread
# one. "cores used" is CPU time over wall time: on a machine shared with other
# work it shows how much of the processors the run could get.
echo
echo "qor pack scaling (compress only)"
printf '%-8s %9s %12s %9s %6s   %s\n' "threads" "time" "throughput" "speed-up" "cores" "pigz -6 at the same count"
counts="1 2"
for ((n = 4; n <= threads; n *= 2)); do counts="$counts $n"; done
[ "$threads" -gt 2 ] && [[ " $counts " != *" $threads "* ]] && counts="$counts $threads"
single=""
for n in $counts; do
  read -r t cpu < <(median_wall_and_cpu "'$qor' pack --quiet --force -j $n '$s' '$s.$n.qz'")
  if [ "$n" = 1 ]; then
    single="$t"
  else
    cmp -s "$s.1.qz" "$s.$n.qz" || { echo "qor pack -j $n: the file differs from -j 1" >&2; exit 1; }
    rm -f "$s.$n.qz"
  fi
  pigz_text="-"
  if command -v pigz > /dev/null; then
    read -r tz cz < <(median_wall_and_cpu "pigz -6 -p $n -c '$s' > '$s.gz'")
    pigz_text=$(awk -v b="$bytes" -v t="$tz" -v c="$cz" 'BEGIN {
      printf "%.2f s %.1f MB/s (%.2f cores)", t, b / t / 1e6, c / t }')
    rm -f "$s.gz"
  fi
  awk -v n="$n" -v b="$bytes" -v t="$t" -v c="$cpu" -v one="$single" -v z="$pigz_text" 'BEGIN {
    printf "%-8s %7.2f s %7.1f MB/s %8.2fx %6.2f   %s\n", n, t, b / t / 1e6, one / t, c / t, z }'
done
rm -f "$s.1.qz"
echo "load after: $(uptime)"
