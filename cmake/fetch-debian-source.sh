#!/usr/bin/env bash
# Fetches and unpacks Debian source packages into a folder of the build tree,
# through a private apt configuration: its own sources list with deb-src lines
# for this machine's Debian release, its own state and cache folders. The
# machine's apt setup is neither read for sources nor changed.
# Usage: fetch-debian-source.sh WORK_DIR PACKAGE...
set -euo pipefail
work=$1
shift
mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/src"
. /etc/os-release
codename=${VERSION_CODENAME:?this machine does not say which Debian release it runs}
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
cat >"$work/apt/sources.list" <<LIST
deb-src [signed-by=$keyring] http://deb.debian.org/debian $codename main
deb-src [signed-by=$keyring] http://deb.debian.org/debian $codename-updates main
deb-src [signed-by=$keyring] http://deb.debian.org/debian-security $codename-security main
LIST
cat >"$work/apt/apt.conf" <<CONF
Dir::Etc::SourceList "$work/apt/sources.list";
Dir::Etc::SourceParts "$work/apt/no-parts";
Dir::State "$work/apt";
Dir::State::Lists "$work/apt/lists";
Dir::State::status "/var/lib/dpkg/status";
Dir::Cache "$work/apt/cache";
Debug::NoLocking "true";
APT::Sandbox::User "$(id -un)";
CONF
mkdir -p "$work/apt/no-parts"
export APT_CONFIG="$work/apt/apt.conf"
apt-get update -qq
cd "$work/src"
apt-get source -qq "$@"
