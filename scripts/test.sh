#!/usr/bin/env bash
# Runs every test suite twice: in the normal build, then in an AddressSanitizer + UBSan build.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

bash "$here/scripts/setup.sh" "$here/build"
echo "== tests (build)"
ctest --test-dir "$here/build" --output-on-failure -j2

bash "$here/scripts/setup.sh" "$here/build-asan" -DHX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
echo "== tests (build-asan: AddressSanitizer + UndefinedBehaviorSanitizer)"
ctest --test-dir "$here/build-asan" --output-on-failure -j2
