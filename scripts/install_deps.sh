#!/usr/bin/env bash
# Installs the Debian 12 packages the build, tests and viewer need; does nothing when all are there.
set -euo pipefail
packages=(g++ cmake ninja-build pkg-config
  qtbase5-dev qtdeclarative5-dev qml-module-qtquick2 qml-module-qtquick-window2 qml-module-qttest
  libopenscenegraph-dev openscenegraph
  xvfb xauth libgl1-mesa-dri libglx-mesa0 libegl-mesa0
  libgtest-dev libbenchmark-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
