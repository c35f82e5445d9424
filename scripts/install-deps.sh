#!/usr/bin/env bash
# Installs the Debian packages Kelfiner builds with, only those that are missing.
set -euo pipefail

packages=(
    build-essential cmake pkg-config ccache clang-format clang llvm libclang-rt-14-dev
    libfftw3-dev libgtest-dev libbenchmark-dev
    juce-modules-source libflac-dev libvorbis-dev libogg-dev libebur128-dev libsodium-dev libcli11-dev
    libmpg123-dev
    xvfb xauth fonts-dejavu-core fonts-font-awesome
    lame # only the tests use it: an MP3 input made on the spot
    # Hosts and validators that are not ours (scripts/validate.sh): LV2's schemas and tools, a
    # host that is not JUCE on a JACK server, and what the validators' sources build with.
    lv2-dev sordi lilv-utils jalv jackd2 sox libflac-dev libvorbis-dev libogg-dev
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "All build dependencies are installed."
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
