#!/usr/bin/env bash
# The tour after the build: runs the three scripts of examples/ with kora in
# BUILD/tour, then checks the results with GDAL and ezdxf.
#
# usage: bash examples/tour.sh BUILD_FOLDER
#
# Everything kora keeps per user (settings, the mapping setups, the seed
# files) goes into BUILD/tour/home, so the real home folder is not touched.
# Each run starts from scratch.
set -euo pipefail
examples="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "$1" && pwd)"
tour="$build/tour"
rm -rf "$tour"
mkdir -p "$tour/home/data/kora/Support"
cp "$examples/DgnSetups.ini" "$tour/home/data/kora/Support/"
cd "$tour"
export KORA_USER_ROOT="$tour/home"

# The scripts are written for build/tour; from another build folder the
# relative paths to examples/ are rewritten. Comment lines are dropped:
# kora's script reader takes every line as typed input.
for step in import export attach; do
  echo "== kora --script examples/$step.scr"
  sed -e '/^;/d' -e "s#\.\./\.\./examples/#$examples/#" "$examples/$step.scr" > "$step.scr"
  "$build/bin/kora" --script "$step.scr" > "$step.log"
  grep -E "Translation|Bind Success|Saved|Written|not a DGN level" "$step.log" || true
done

echo "== checks"
/usr/bin/python3 "$examples/check_tour.py" "$tour"

cat <<END
== results in $tour
  smalltest.dxf    examples/smalltest.dgn imported into a new drawing
  plan.dgn         examples/plan.dxf exported to V7 (Walls on level 10, Doors on 20)
  plan-bound.dxf   plan.dgn attached to a new drawing and bound
  *.log            what kora printed for each script
END
