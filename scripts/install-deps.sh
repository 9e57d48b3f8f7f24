#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=(g++ make cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev libfast-float-dev
          libtinygltf-dev nlohmann-json3-dev assimp-utils pkgconf)
# node runs the glTF validator in the tests; Debian's nodejs only where none is installed.
command -v node >/dev/null && command -v npm >/dev/null || packages+=(nodejs npm)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# The Khronos glTF validator for the tests, at the version pinned in tests/package-lock.json.
if [ ! -f tests/node_modules/gltf-validator/package.json ]; then
  echo "Installing the glTF validator (npm ci in tests/)"
  (cd tests && npm ci --no-audit --no-fund --loglevel=error)
fi
