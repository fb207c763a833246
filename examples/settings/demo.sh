#!/bin/sh
# Shows the settings example from beginning to end; called by ./dev demo with the folder of the programs. The
# machine folder that it works on is one of its own.
set -eu
settings=$1/orm-settings
ORM_MACHINE=$(mktemp -d) && export ORM_MACHINE
work=$(mktemp -d)
trap 'rm -rf "$ORM_MACHINE" "$work"' EXIT
say() { printf '\n# %s\n' "$*"; }
run() { printf '$ orm-settings %s\n' "$*"; "$settings" "$@" 2>&1; }

say "The machine's owner sets defaults for everyone, a user changes one of them."
run set --machine Font Courier
run set --machine --type number Width 80
run set --type number width 132
run set --type binary Layout 0102ff
run list

say "Another program takes them over: all that applies travels as one block of bytes, here through a pipe."
printf '$ orm-settings export - | orm-settings --bag Other import -\n'
"$settings" export - | "$settings" --bag Other import -
run --bag Other list

say "Damaged data are refused as a whole. Cut short:"
"$settings" export "$work/block"
head -c 60 "$work/block" >"$work/cut"
run --details --bag Other import "$work/cut" || true
say "From a version that nobody knows:"
{ head -c 4 "$work/block"; printf '\002\000\000\200'; tail -c +9 "$work/block"; } >"$work/version"
run --details --bag Other import "$work/version" || true
say "What was there before is still there:"
run --bag Other get FONT

say "A setting that does not exist:"
run --details get Colour || true
