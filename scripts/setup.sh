#!/usr/bin/env bash
# Installs the build and test dependencies that are missing (Debian 12, as root).
# Safe to run again: installed packages are detected with dpkg-query first.
set -euo pipefail

packages=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev
          libpugixml-dev nlohmann-json3-dev libcli11-dev nats-server libnats-dev prometheus-cpp-dev chromium
          fonts-wqy-microhei)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  if [[ "$status" != "install ok installed" ]]; then
    missing+=("$p")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  echo "setup: all dependencies present"
  exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
  echo "setup: missing ${missing[*]}; run this script as root to install them" >&2
  exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}"
