#!/usr/bin/env bash
# Unpacks Debian's arm64 packages, and what they depend on, into FOLDER: what the preset arm64 compiles, links and runs
# against. Beside the native packages they could not be installed, and the machine's own apt and dpkg learn nothing of
# arm64: apt works on a state of its own in FOLDER.apt, with the sources, keys and preferences of this machine. Quick
# when FOLDER is complete; after an interruption apt goes on with what it had fetched.
set -euo pipefail

usage="usage: cmake/arm64-sysroot.sh FOLDER PACKAGE...   unpack arm64 packages and their dependencies into FOLDER"
if [[ "${1:-}" == -h || "${1:-}" == --help ]]; then
  echo "$usage"
  exit 0
fi
[[ $# -ge 2 ]] || { echo "$usage" >&2; exit 2; }
mkdir -p "$(dirname "$1")"
sysroot="$(realpath -m "$1")"
packages=("${@:2}")
state="$sysroot.apt"
new="$sysroot.new"

# What is asked for, by which version of this script.
wanted="$(sha256sum <"$0") ${packages[*]}"
complete() { [[ -f "$sysroot/complete" && "$(<"$sysroot/complete")" == "$wanted" ]]; }
complete && exit 0
exec 9>"$sysroot.lock"
flock 9
complete && exit 0 # by another one meanwhile

mkdir -p "$state/lists/partial" "$state/archives/partial"
: >"$state/status" # nothing is installed there: dependencies are fetched to the last
# Read after the machine's configuration. What that runs after an update is about the machine's own packages.
cat >"$state/apt.conf" <<CONF
#clear APT::Architectures;
#clear APT::Update;
#clear DPkg;
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "$(id -un)";
APT::Update::Error-Mode "any";
Acquire::Languages "none";
Acquire::Retries "2";
Dir::State "$state";
Dir::State::lists "$state/lists";
Dir::State::status "$state/status";
Dir::Cache "$state";
Dir::Cache::archives "$state/archives";
Dir::Log "$state";
CONF
apt() { apt-get -q -q -c "$state/apt.conf" -o APT::Get::List-Cleanup=true "$@"; }
fail() {
  echo "arm64-sysroot.sh: $1; the lines above say why. apt's sources must offer arm64 and be within reach" >&2
  exit 1
}

echo "arm64-sysroot.sh: fetching ${packages[*]} for arm64"
apt update || fail "cannot read the lists of arm64 packages"
apt autoclean
apt install -y --download-only "${packages[@]}" || fail "cannot fetch the arm64 packages"
# What an earlier list of packages left among the archives stays out.
mapfile -t archives < <(apt install --simulate "${packages[@]}" |
  sed -nE '/^Inst /{s/^Inst ([^ ]+) \(([^ ]+) .*\[([a-z0-9]+)\]\).*/\1_\2_\3.deb/; s/:/%3a/g; p}')

rm -rf "$new"
mkdir -p "$new/var/lib/dpkg/info"
for archive in "${archives[@]}"; do
  dpkg-deb --extract "$state/archives/$archive" "$new" || fail "cannot unpack $archive"
done
# Absolute links lead out of the folder.
while IFS= read -r -d '' link; do
  ln -sfnr "$new$(readlink "$link")" "$link"
done < <(find "$new" -type l -lname '/*' -print0)
printf '%s\n' "$wanted" >"$new/complete"
rm -rf "$sysroot"
mv "$new" "$sysroot"
