#!/bin/bash
# check-debian13.sh [--mirror URL] [--directory DIR]: runs README.md's two commands, `make test` and `make run`, on
# Debian 13, which debootstrap lays into DIR (default /var/tmp/veldra-debian13; about 2 GB). What is checked is the
# last commit. DIR stays: the next run takes it as it is and is quicker; remove it when it is to be made anew.
# Without --mirror debootstrap takes its own. Needs root and debootstrap.
set -eu

stop() {
  echo "check-debian13.sh: $1" >&2
  exit 1
}

root=/var/tmp/veldra-debian13
mirror=()
while [ $# -gt 0 ]; do
  [ $# -ge 2 ] || stop "$1 is no option or has no value; the options are --mirror URL and --directory DIR"
  case $1 in
    --mirror) mirror=("$2") ;;
    --directory) root=$(realpath -m -- "$2") ;;
    *) stop "$1 is no option; the options are --mirror URL and --directory DIR" ;;
  esac
  shift 2
done
[ "$(id -u)" -eq 0 ] || stop "run this as root: debootstrap and chroot need it"
command -v debootstrap >/dev/null || stop "debootstrap is missing: apt-get install debootstrap"

# In a mount namespace of its own: whatever ends this script, the kernel takes its mounts away.
if [ "${VELDRA_OWN_MOUNTS:-}" != yes ]; then
  exec env VELDRA_OWN_MOUNTS=yes unshare --mount -- "$0" --directory "$root" ${mirror[0]:+--mirror "${mirror[0]}"}
fi
cd "$(dirname "$0")/.."

made=$root/var/lib/veldra-root-made
if [ ! -e "$made" ]; then
  [ -z "$(ls -A "$root" 2>/dev/null)" ] ||
    stop "$root is not empty and no finished Debian 13: remove it, or name another with --directory"
  scripts/quietly.sh "Debian 13" debootstrap --variant=minbase --include=git,make,ca-certificates \
    trixie "$root" "${mirror[@]}"
  touch "$made"
fi
mountpoint -q "$root/proc" || mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
cp -L /etc/resolv.conf "$root/etc/resolv.conf"

rm -rf "$root/veldra"
mkdir "$root/veldra"
git archive HEAD | tar -x -C "$root/veldra"
inside() { chroot "$root" env -i HOME=/root TERM=dumb LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
for command in test run; do
  inside make -C /veldra --no-print-directory "$command"
done
# shellcheck disable=SC2016 # dpkg-query fills these in, not the shell
versions() { inside dpkg-query -W -f '${Package} ${Version}\n' g++ cmake libsqlite3-dev libcli11-dev; }
echo "Debian $(cat "$root/etc/debian_version") with $(versions | paste -s -d ,)"
