#!/usr/bin/env bash
# Compares the analyzer's replies with the expected bytes of the request streams in ../shared/conformance.
set -eu
check=$(dirname "$0")/../../shared/conformance/check
if [ ! -x "$check" ]; then
  echo "conformance: skipped, there is no ../shared/conformance beside the checkout"
  exit 77
fi
exec "$check" "$1"
