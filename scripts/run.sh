#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds vxd's tools and runs the main job:
# the example capture of the surface through the real input parser.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/default/tools/vxctl/vxctl decode "${@:-examples/capture.hex}"
