#!/bin/sh
# Stands in for a test that needs something which this machine lacks: skipped, and a failure where continuous
# integration promises to have it (CI is set).
#   tests/missing-peer.sh WHAT
echo "Not run: $1 is missing. scripts/bootstrap.sh --test installs it; configure again afterwards." >&2
[ -z "${CI:-}" ] || exit 1
exit 77
