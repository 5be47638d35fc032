#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing vxd needs. Runs
# apt-get only when something is missing, so it is cheap to call every time.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config          # build
    libgtest-dev libgmock-dev libbenchmark-dev  # tests and benchmarks
    clang libclang-rt-14-dev clang-format     # fuzz preset, formatting
    libsystemd-dev                            # sd-event loop, sd-bus
    libusb-1.0-0-dev                          # USB backend
    umockdev libumockdev-dev libglib2.0-dev   # the emulated USB device of the integration tests
    libasound2-dev libjack-jackd2-dev         # MIDI backends: ALSA sequencer, JACK
    jackd2                                    # the private JACK server of the MIDI tests and benchmark
    libxcb1-dev libxcb-xtest0-dev             # desktop: key and mouse input through XTest on xcb
    libxcb-ewmh-dev                           # desktop: the focused window (_NET_ACTIVE_WINDOW)
    libevdev-dev                              # desktop: uinput devices, and the key table's names
    xvfb libx11-dev libxi-dev                 # the desktop tests' X server and their XInput2 observer
    matchbox-window-manager                   # a real window manager that sets the focus in the tests
    dbus-daemon                               # the private session bus of the D-Bus and end-to-end tests
    libtomlplusplus-dev                       # keysets as text: the TOML reader and writer of vxctl
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
# jackd2 asks whether jackd may run with real-time priority; the tests run it
# with --no-realtime, so the answer is no, given before apt asks.
echo "jackd2 jackd/tweak_rt_limits boolean false" | $sudo debconf-set-selections
$sudo apt-get update
$sudo apt-get install -y --no-install-recommends "${missing[@]}"
