#!/usr/bin/env bash
# Installs the Debian packages that building and testing Tenebrix needs, and nothing else.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config zlib1g-dev libpng-dev libgtest-dev libgmock-dev
          libbenchmark-dev libassimp-dev qt6-base-dev libegl-dev libgl-dev
          libegl-mesa0 libgl1-mesa-dri libcli11-dev nlohmann-json3-dev help2man
          bash-completion)

# `make fuzz` needs clang and its libFuzzer runtime as well; `make screenshot` a virtual X
# server and the tools that drive and photograph it.
case "${1:-}" in
  --fuzz) packages+=(clang libclang-rt-dev) ;;
  --screenshot) packages+=(xvfb xauth xdotool x11-apps netpbm) ;;
esac

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
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
