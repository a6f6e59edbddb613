#!/usr/bin/env bash
# Makes the documentation from the public headers and docs/.
#
#   scripts/docs.sh           makes HTML in build/docs/html, and manual pages in build/docs/man: one for
#                             every header, exported name, record, type and constant, and zxcommon(7).
#                             Fails if Doxygen or groff prints a warning, or if a page is missing.
#   scripts/docs.sh --guides  copies the current programs of examples/ into the guides.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

case "$# ${1-}" in
    "0 ") ;;
    "1 --guides")
        for page in docs/*.md docs/guides/*.md; do
            text=$(awk -f scripts/docs_guides.awk "$page")
            cmp -s "$page" <<<"$text" || cat >"$page" <<<"$text"
        done
        exit
        ;;
    *) misused ;;
esac

scripts/install-deps.sh docs
out=build/docs
mkdir -p "$out"
rm -rf "$out/html" "$out/man" "$out/xml"
ZX_DOCS_VERSION=$(sed -n 's/^project(zxcommon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
export ZX_DOCS_OUT=$out ZX_DOCS_VERSION
failed=0
doxygen docs/Doxyfile 2>"$out/warnings"
# The pages link to the example programs by relative paths, as in the source tree.
cp -r examples "$out/html/examples"
cp docs/zxdiag.schema.json "$out/html"
sed -i -E 's|href="(\.\./)+examples|href="examples|g' "$out"/html/*.html
python3 scripts/docs_man.py "$out/xml" "$out/man" "$ZX_DOCS_VERSION" || failed=1
if command -v groff >/dev/null; then
    (cd "$out/man" && groff -man -ww -z -Tutf8 man?/*) 2>>"$out/warnings"
fi
if [[ -s $out/warnings ]]; then
    cat "$out/warnings" >&2
    failed=1
fi
exit $failed
