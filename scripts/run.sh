#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds vxd's tools and runs the main job:
# the example capture of the surface through the real parser, control service
# and the example keysets, as the application 'DAW1' in front. Arguments, if
# given, replace the default ones of `vxctl decode`.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
if [ $# -eq 0 ]; then
    set -- --prefs examples/example.prefs --app DAW1 examples/capture.hex
fi
build/default/tools/vxctl/vxctl decode "$@"
