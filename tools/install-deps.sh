#!/usr/bin/env bash
# Installs every Debian package the Nestora installer needs to build, test and run its demo.
# Idempotent: packages already present are left alone.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-l10n-tools qt6-tools-dev qt6-tools-dev-tools libqt6svg6
  libgl-dev libxkbcommon-dev
  libspdlog-dev libfmt-dev libplist-dev zlib1g-dev libsodium-dev minisign
  gcovr clang-format clang-tidy
  unzip zip python3 nginx-light tinyproxy xvfb xauth pkexec procps ccache curl time openssl iproute2
  fonts-inter fontconfig
  xdotool x11-utils imagemagick
  at-spi2-core python3-pyatspi gir1.2-atspi-2.0 dbus-x11
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo_cmd=()
  [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
