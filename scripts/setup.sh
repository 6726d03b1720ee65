#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the fuzz targets and the benchmarks need,
# skipping those already installed, then the npm packages of package-lock.json (the glTF
# validator the tests run, three.js for vorla view, puppeteer-core for its browser test). As
# root it installs Debian packages with apt-get; otherwise it lists what is missing and fails.
set -euo pipefail

packages=(g++ make cmake libgtest-dev libzip-dev zip libcurl4-openssl-dev libdeflate-dev
          libpugixml-dev libxxhash-dev libxml2-dev python3 libcli11-dev
          nlohmann-json3-dev pkg-config clang libfuzzer-14-dev libclang-rt-14-dev)
# vorla view: its HTTP server, and the browser its test drives.
packages+=(libcpp-httplib-dev chromium)
# Node.js may come from elsewhere than Debian; only a missing command asks for the packages.
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm)
cd "$(dirname "$0")/.."

install_npm_packages() {
  # npm ci when a package of the lock file is missing (a node_modules from before it was added).
  local p
  for p in gltf-validator three puppeteer-core; do
    [ -f "node_modules/$p/package.json" ] && continue
    echo "setup: installing the npm packages of package-lock.json"
    npm ci --no-audit --no-fund --loglevel=error >/dev/null
    return 0
  done
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
