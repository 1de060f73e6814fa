#!/usr/bin/env bash
# Stores the images that failed image comparisons as the new baselines, after review.
# Usage: scripts/accept_baselines.sh [NAME...]   (no names: every image in <build>/image_actual)
set -euo pipefail
cd "$(dirname "$0")/.."
actual=${BUILD_DIR:-build}/image_actual
if [ ! -d "$actual" ]; then
  echo "no $actual: every image test matched its baseline" >&2
  exit 1
fi
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for f in "$actual"/*.png; do [ -e "$f" ] && names+=("$(basename "$f" .png)"); done
fi
for name in "${names[@]}"; do
  cp -v "$actual/$name.png" "tests/baselines/$name.png"
  rm "$actual/$name.png"
done
