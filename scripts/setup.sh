#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages.txt that are not installed yet.
# Run as root on Debian 12. Exits non-zero with a message when a package cannot be installed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
list="$here/packages.txt"

# Locales the translation tests select (package locales); generated only when missing.
ensure_locales() {
  local need=() loc
  for loc in de_DE.UTF-8 fr_FR.UTF-8; do
    locale -a 2>/dev/null | grep -x "${loc%.UTF-8}.utf8" >/dev/null || need+=("$loc")
  done
  [ ${#need[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: generating the locales ${need[*]} needs root" >&2
    return 1
  fi
  for loc in "${need[@]}"; do
    grep -qx "$loc UTF-8" /etc/locale.gen 2>/dev/null || echo "$loc UTF-8" >> /etc/locale.gen
  done
  locale-gen >/dev/null
  echo "setup: generated ${need[*]}"
}

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
  ensure_locales
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
ensure_locales
echo "setup: done"
