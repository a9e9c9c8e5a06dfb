#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages.txt that are not installed yet.
# Run as root on Debian 12. Exits non-zero with a message when a package cannot be installed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
list="$here/packages.txt"

missing=()
while read -r pkg; do
  pkg=${pkg%%#*}; pkg=${pkg//[[:space:]]/}
  [ -n "$pkg" ] || continue
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$pkg")
  fi
done < "$list"

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

echo "setup: installing ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "setup: these packages are missing and installing them needs root: ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
if ! apt-get update -qq; then
  echo "setup: apt-get update failed; check the network and /etc/apt/sources.list" >&2
  exit 1
fi
if ! apt-get install -y -qq --no-install-recommends "${missing[@]}" >/tmp/notesetup-apt.log 2>&1; then
  tail -n 20 /tmp/notesetup-apt.log >&2
  echo "setup: apt-get could not install: ${missing[*]} (full log: /tmp/notesetup-apt.log)" >&2
  exit 1
fi
echo "setup: done"
