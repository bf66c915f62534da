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

# What dpkg would know of an installed package, so that dpkg-shlibdeps finds out which package a library is of: with the
# paths as they are seen from outside.
record() { # ARCHIVE
  local name file
  name="$(dpkg-deb --field "$1" Package)"
  [[ "$(dpkg-deb --field "$1" Multi-Arch)" != same ]] || name+=":arm64"
  dpkg-deb --fsys-tarfile "$1" | tar --list | sed -nE "s,^\./(.*[^/])\$,$sysroot/\1,p" >"$database/info/$name.list"
  rm -rf "$new.control"
  dpkg-deb --control "$1" "$new.control"
  for file in shlibs symbols; do
    [[ ! -f "$new.control/$file" ]] || cp "$new.control/$file" "$database/info/$name.$file"
  done
  sed '/^Package:/a Status: install ok installed' "$new.control/control" >>"$database/status"
  echo >>"$database/status"
}

rm -rf "$new"
database="$new/var/lib/dpkg"
mkdir -p "$database/info" "$database/updates"
echo 1 >"$database/info/format"
printf '%s\narm64\n' "$(dpkg --print-architecture)" >"$database/arch"
for archive in "${archives[@]}"; do
  dpkg-deb --extract "$state/archives/$archive" "$new" || fail "cannot unpack $archive"
  record "$state/archives/$archive"
done
rm -rf "$new.control"
# Absolute links lead out of the folder.
while IFS= read -r -d '' link; do
  ln -sfnr "$new$(readlink "$link")" "$link"
done < <(find "$new" -type l -lname '/*' -print0)
printf '%s\n' "$wanted" >"$new/complete"
rm -rf "$sysroot"
mv "$new" "$sysroot"
