#!/usr/bin/env bash
# Checks the Debian packages on a fresh Debian system: a debootstrap chroot.
#
#   bash scripts/check-packages.sh [DIR_WITH_DEBS]    (default: build/package, made by scripts/package.sh)
#   bash scripts/check-packages.sh --prepare          (only makes the cached base system)
#
# As root. In a copy of a cached minimal Debian (bookworm, from the mirror that
# apt is configured with) it
#   - installs the three packages with apt-get, which pulls in their dependencies;
#   - builds a small downstream program with pkg-config and with find_package(qorc), and runs both;
#   - runs qor --version, renders man qor, and completes qor's commands and options with Tab
#     through bash-completion;
#   - purges the three packages (and what they pulled in) and checks that no file of theirs,
#     and nothing else, is left behind.
# The base system (with a compiler, cmake, pkg-config, man-db and bash-completion, which a
# developer's machine has) is made once and kept in /var/cache/qorc-check; each run works on
# a throw-away copy of it, so a re-run takes about a minute. QORC_CHECK_CACHE overrides the
# cache folder; delete it to start from a newer Debian.
set -euo pipefail
cd "$(dirname "$0")/.."
prepare_only=0
[ "${1:-}" = "--prepare" ] && { prepare_only=1; shift; }
debs_dir="$(realpath "${1:-build/package}")"
suite=bookworm
cache="${QORC_CHECK_CACHE:-/var/cache/qorc-check}"
base="$cache/$suite-base"

[ "$(id -u)" -eq 0 ] || { echo "check-packages.sh: run as root (debootstrap and chroot)" >&2; exit 2; }
shopt -s nullglob
if [ "$prepare_only" -eq 0 ]; then
debs=("$debs_dir"/libqorc0_*.deb "$debs_dir"/libqorc-dev_*.deb "$debs_dir"/qor_*.deb)
[ "${#debs[@]}" -eq 3 ] || { echo "check-packages.sh: expected the three packages in $debs_dir (run scripts/package.sh)" >&2; exit 2; }
fi

# The mirror apt already uses for Debian itself (deb822 or one-line sources).
mirror() {
  local uri
  uri=$(grep -hsE '^(URIs:|deb )' /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources |
    grep -oE 'https?://[^ ]+/debian/?( |$)' | head -n 1 | tr -d ' ')
  echo "${uri:-http://deb.debian.org/debian}"
}

make_base() {
  local work="$base.partial"
  rm -rf "$work"
  mkdir -p "$cache"
  echo "== debootstrap $suite into $base (once)"
  debootstrap --variant=minbase "$suite" "$work" "$(mirror)"
  # A developer's machine: the compiler, the build tools, manual pages and completion.
  echo 'path-exclude=/usr/share/locale/*' > "$work/etc/dpkg/dpkg.cfg.d/no-locales"
  run_in "$work" apt-get update -qq
  run_in "$work" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    g++ make cmake pkg-config man-db bash-completion
  run_in "$work" apt-get clean
  mv "$work" "$base"
}

mounted=()
mount_system() {  # root
  mount -t proc proc "$1/proc" && mounted+=("$1/proc")
  mount --bind /dev "$1/dev" && mounted+=("$1/dev")
  mount --bind /dev/pts "$1/dev/pts" && mounted+=("$1/dev/pts")
}
unmount_all() {
  local i
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do umount "${mounted[$i]}" || umount -l "${mounted[$i]}"; done
  mounted=()
}
run_in() {  # root command...
  local root="$1"
  shift
  mount_system "$root"
  local status=0
  chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 "$@" || status=$?
  unmount_all
  return "$status"
}

# Every file and folder of the system, but the ones that change with any apt run.
snapshot() {  # root
  (cd "$1" && find . -xdev \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./var/cache -o -path ./var/lib/apt \
    -o -path ./var/lib/dpkg -o -path ./var/log -o -path ./root -o -path ./var/lib/man-db -o -path ./etc/ld.so.cache \) \
    -prune -o -print | sort)
}

trap unmount_all EXIT
[ -d "$base" ] || make_base
[ "$prepare_only" -eq 0 ] || exit 0

root="$(mktemp -d /var/tmp/qorc-check.XXXXXX)"
trap 'unmount_all; rm -rf "$root" "$root".*' EXIT
echo "== fresh system in $root"
cp -a "$base/." "$root/"
snapshot "$root" > "$root.before"
mkdir -p "$root/debs" "$root/downstream"
cp "${debs[@]}" "$root/debs/"
cp tests/downstream/project/* tests/packages/build-and-run.sh tests/packages/complete.sh "$root/downstream/"

echo "== apt-get install ./libqorc0_*.deb ./libqorc-dev_*.deb ./qor_*.deb"
run_in "$root" apt-get update -qq
run_in "$root" sh -c 'cd /debs && DEBIAN_FRONTEND=noninteractive apt-get install -y -q ./libqorc0_*.deb ./libqorc-dev_*.deb ./qor_*.deb'
run_in "$root" dpkg-query -W -f '${Package} ${Version} ${Depends}\n' libqorc0 libqorc-dev qor
# Everything they depend on is installed now (ICU, libgsf, Crypto++, SQLite and libdeflate
# are not in the base system: apt brought them).
run_in "$root" sh -c 'for dependency in $(dpkg-query -W -f "\${Depends}," libqorc0 libqorc-dev qor |
  tr "," "\n" | sed "s/(.*//; s/ //g"); do
    dpkg-query -W -f "  \${Package} \${Status}\n" "$dependency" | grep "install ok installed" || exit 1
  done'
run_in "$root" sh -c 'dpkg -L libqorc0 libqorc-dev qor | sort -u' > "$root.files"

echo "== the downstream program, with pkg-config and with find_package(qorc)"
run_in "$root" bash /downstream/build-and-run.sh

echo "== qor --version, man qor, Tab completion"
run_in "$root" qor --version
run_in "$root" sh -c 'MANWIDTH=80 man qor 2>&1 | col -b > /tmp/man.txt; head -n 12 /tmp/man.txt;
  grep -q "EXIT STATUS" /tmp/man.txt && grep -q "qor rsa keygen" /tmp/man.txt'
run_in "$root" bash /downstream/complete.sh

echo "== apt-get remove --purge"
run_in "$root" env DEBIAN_FRONTEND=noninteractive apt-get remove --purge -y -q libqorc0 libqorc-dev qor
run_in "$root" env DEBIAN_FRONTEND=noninteractive apt-get autoremove --purge -y -q
rm -rf "$root/debs" "$root/downstream"
snapshot "$root" > "$root.after"
left=0
while read -r path; do
  if [ -e "$root$path" ] && [ ! -d "$root$path" ]; then
    echo "left behind: $path" >&2
    left=1
  fi
done < "$root.files"
if ! diff "$root.before" "$root.after" > "$root.diff"; then
  echo "the system differs from before the installation:" >&2
  cat "$root.diff" >&2
  left=1
fi
rm -f "$root.before" "$root.after" "$root.files" "$root.diff"
[ "$left" -eq 0 ] || exit 1
echo "== all checks passed: installed, built against, used and purged without a trace"
