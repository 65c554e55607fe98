#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds qorc, runs the example host, and
# shows the qor tool at work on files it makes in a temporary directory.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
cmake --preset default
cmake --build --preset default --target qorc_example_host qor
./build/default/qorc_example_host

qor="$PWD/build/default/tools/qor/qor"
demo="$(mktemp -d)"
trap 'rm -rf "$demo"' EXIT
cd "$demo"
show() { printf '\n$ qor %s\n' "$*"; "$qor" "$@"; }

echo
echo "qor, the command-line tool, in $demo:"
seq -f 'line %06g of a sample document' 1 200000 > document.txt
show pack document.txt document.qz
show info document.qz
show check document.qz
show cat document.qz --offset 3499980 --length 66
show unpack document.qz document.back
cmp document.txt document.back && echo "(unpacked file is identical to the original)"
show crc document.txt document.qz
show adler document.txt
head -c 45 document.txt > note.txt
show shield note.txt note.shielded
cat note.shielded
show unshield note.shielded note.back
cmp note.txt note.back && echo "(unshielded file is identical to the original)"
show storage put document.cfb note.txt
show storage list document.cfb
show storage get document.cfb -
echo
show lock status document.txt
show rsa keygen 512 --output demo-key --seed 2026
show rsa encrypt demo-key.pub note.txt note.rsa
show rsa decrypt demo-key.key note.rsa -
echo
# A damaged block: check names it and fails, as scripts can test.
printf 'damage' | dd of=document.qz bs=1 seek=40000 conv=notrunc status=none
if show check document.qz; then echo "unexpected: damage not found" >&2; exit 1; fi
echo "(check failed with exit status 1, as it should)"
