#!/usr/bin/env bash
# Sets up the machine, builds the module and the stand-alone host, then shows the module at work:
# demo client data in demo/, a backup with its progress bar, the archive checked with unzip, a restore.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$here/build"
bash "$here/scripts/setup.sh" "$build"

client="$build/bin/HxClient"
demo="$here/demo"
export HX_DATA_PATH="$demo/data"
backups="$demo/backups"

# A fresh demo each time; demo/ is this script's own (and git-ignored).
rm -rf "$demo"

echo
echo "== demo client data"
"$client" demo-data

echo
echo "== backup"
"$client" backup "$backups"
# The folder was empty: the one archive in it is the one just made.
archive="$(ls -1 "$backups"/BackUp_*.zip)"

echo
echo "== archive check"
unzip -tq "$archive"

echo
echo "== restore"
"$client" recover --yes "$archive"

echo
echo "== start again: the client takes up the restored database, and shows its backup settings"
"$client" settings

echo
echo "Where everything is:"
echo "  host program:        $client (HxClient --help)"
echo "  module and services: $build/Frameworks"
echo "  demo client data:    $HX_DATA_PATH"
echo "  the user's folders:  $demo/DemoUser (named by the client database)"
echo "  backup archive:      $archive"
echo "  log:                 $HX_DATA_PATH/Log/hx.log"
echo
echo "Try it yourself:"
echo "  export HX_DATA_PATH=$HX_DATA_PATH"
echo "  $client settings --interval 3"
echo "  $client oplog"
echo "  $client gui        (needs a display)"
