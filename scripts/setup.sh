#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the fuzz targets and the benchmarks need,
# skipping those already installed, then the npm packages of package-lock.json (the glTF
# validator the tests run). As root it installs Debian packages with apt-get; otherwise it
# lists what is missing and fails.
set -euo pipefail

packages=(g++ make cmake libgtest-dev libzip-dev zip libcurl4-openssl-dev libdeflate-dev
          libpugixml-dev libxxhash-dev libxml2-dev python3 libcli11-dev libtinygltf-dev
          nlohmann-json3-dev pkg-config clang libfuzzer-14-dev)
# Node.js may come from elsewhere than Debian; only a missing command asks for the packages.
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm)
cd "$(dirname "$0")/.."

install_npm_packages() {
  [ -f node_modules/gltf-validator/package.json ] && return 0
  echo "setup: installing the npm packages of package-lock.json"
  npm ci --no-audit --no-fund --loglevel=error >/dev/null
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  install_npm_packages
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing Debian packages: ${missing[*]}" >&2
  echo "setup: install them as root: apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
install_npm_packages
