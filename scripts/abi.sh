#!/usr/bin/env bash
# Checks liborvexlib.so.1's binary interface against the baseline abi/liborvexlib.so.1.abi: builds
# the library (preset abi: RelWithDebInfo with pinned flags), describes it with abigail's abidw and
# compares the two with abidiff. Any change to the exported interface fails: a type, a member's
# place, a virtual function's place in its vtable, a signature, a symbol, and an addition too.
# Usage: scripts/abi.sh           check (CI runs this)
#        scripts/abi.sh --update  make the current interface the baseline, for an addition made on
#                                 purpose: commit the new baseline with the change, add the new
#                                 symbols to debian/liborvexlib1.symbols and say so in
#                                 debian/changelog.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh abi

baseline=abi/liborvexlib.so.1.abi
suppressions=abi/suppressions.abignore
current=build/abi/liborvexlib.so.1.abi

cmake --preset abi >/dev/null
cmake --build --preset abi --target orvexlib >/dev/null
# Every class in include/ is public; types only the implementation sees are left out. Locations
# and paths are left out too, so the description depends on the source alone, not on where it was
# built.
abidw --headers-dir include/ --drop-private-types --no-show-locs --no-comp-dir-path \
      --no-corpus-path --type-id-style hash --out-file "$current" build/abi/liborvexlib.so.1

if [ "${1:-}" = "--update" ]; then
    cp "$current" "$baseline"
    echo "abi: $baseline now describes this build"
    exit 0
fi

set +e
report=$(abidiff --suppressions "$suppressions" "$baseline" "$current")
rc=$?
set -e
if [ $rc -eq 0 ]; then
    echo "abi: liborvexlib.so.1 matches $baseline"
    exit 0
fi
echo "$report"
if [ $((rc & 3)) -ne 0 ]; then
    echo "abi: abidiff could not compare the two (exit $rc)" >&2
elif [ $((rc & 8)) -ne 0 ]; then
    echo "abi: INCOMPATIBLE change to liborvexlib.so.1's interface: applications built against it" \
         "would break. Undo it, or make a new soname (liborvexlib.so.2)." >&2
else
    echo "abi: liborvexlib.so.1's interface changed (see above). If that is on purpose (an" \
         "addition), run scripts/abi.sh --update and commit $baseline with the change, with the" \
         "new symbols in debian/liborvexlib1.symbols and a line in debian/changelog." >&2
fi
exit 1
