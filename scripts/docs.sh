#!/usr/bin/env bash
# Makes the documentation from the public headers and docs/: build/docs/html for browsers, and
# build/docs/man with a page for every exported name. Fails when Doxygen has anything to say.
# scripts/docs.sh DIR writes to DIR instead and installs nothing; without Doxygen it exits with 77.
set -euo pipefail
cd "$(dirname "$0")/.."

out=${1-}
if [[ -z $out ]]; then
    out=build/docs
    scripts/install-deps.sh docs
elif ! command -v doxygen >/dev/null; then
    echo "skipped: doxygen is not installed"
    exit 77
fi

mkdir -p "$out"
rm -rf "$out/html" "$out/man" "$out/xml"
ZX_DOCS_VERSION=$(sed -n 's/^project(zxcommon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
export ZX_DOCS_OUT=$out ZX_DOCS_VERSION
failed=0
doxygen docs/Doxyfile 2>"$out/warnings"
if [[ -s $out/warnings ]]; then
    cat "$out/warnings" >&2
    failed=1
fi
# Pages link to the example programs as the sources do.
cp -r examples "$out/html/examples"
sed -i -E 's|href="(\.\./)+examples|href="examples|g' "$out"/html/*.html
python3 scripts/docs_man.py "$out/xml" "$out/man/man3" "$ZX_DOCS_VERSION" src/zxcommon.map zxlog/zxlog.map ||
    failed=1
exit $failed
