#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, skipping those
# already installed. As root it installs them with apt-get; otherwise it lists what is
# missing and fails.
set -euo pipefail

packages=(g++ make cmake libgtest-dev libzip-dev zip libcurl4-openssl-dev libdeflate-dev
          libpugixml-dev libxxhash-dev libxml2-dev python3)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing Debian packages: ${missing[*]}" >&2
  echo "setup: install them as root: apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
