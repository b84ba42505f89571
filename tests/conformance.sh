#!/usr/bin/env bash
# Compares the analyzer's replies with expected bytes: hands it to the program "check" in $FLEIFEISA_CONFORMANCE.
set -eu
if [ -z "${FLEIFEISA_CONFORMANCE-}" ]; then
  echo "conformance: skipped, FLEIFEISA_CONFORMANCE is not set"
  exit 77
fi
exec "$FLEIFEISA_CONFORMANCE/check" "$1"
