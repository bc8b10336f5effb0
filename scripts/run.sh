#!/usr/bin/env bash
# Sets up the machine, builds the module and the stand-alone host, and runs them.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/setup.sh" "$here/build"

echo
echo "Built:"
echo "  host service libraries: $here/build/Frameworks"
ls -1 "$here/build/Frameworks" | sed 's/^/    /'
