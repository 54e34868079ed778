#!/usr/bin/env bash
# The code's floors: nothing below the program's start and window reaches up into them, and the
# window's widgets stay out of the library the silent run links.
set -euo pipefail
src=${1:?source folder}
fail=0
for dir in support lang report failure scan treemap snapshot; do
  if hits=$(grep -rn '#include "\(app\|ui\)/' "$src/$dir"); then
    echo "$dir reaches up:"; echo "$hits"; fail=1
  fi
done
# Below the window, no file includes a widget or painting header; the treemap's painter is built
# into the window's library alone.
if hits=$(grep -rln '#include <Q\(Widget\|Dialog\|MainWindow\|Painter\|Pixmap\|Font\|Color\|Brush\|Icon\|Image\|Gui\)' \
            "$src" --include=*.h --include=*.cpp | grep -v "^$src/ui/\|^$src/treemap/TreemapPainter\."); then
  echo "window code outside ui/:"; echo "$hits"; fail=1
fi
exit $fail
