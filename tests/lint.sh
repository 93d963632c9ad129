#!/usr/bin/env bash
# clang-tidy over every source (`lint.sh all`), or over those that differ from a revision: the one
# that is given, or the one that this branch comes from.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = all ]; then
  sources=$(git ls-files '*.cpp')
else
  base=${1:-$({ git merge-base HEAD origin/main || git merge-base HEAD main; } 2>/dev/null || :)}
  if [ "${base:-$(git rev-parse HEAD)}" = "$(git rev-parse HEAD)" ]; then base=HEAD~1; fi
  git rev-parse -q --verify "$base^{commit}" >/dev/null || { echo "nothing to compare with"; exit 0; }
  sources=$(git diff --name-only --diff-filter=d "$base" -- '*.cpp'
            git ls-files --others --exclude-standard '*.cpp')
fi
[ -n "$sources" ] || exit 0

# A configuration of its own: everything that is built is known to it, each source by itself.
cmake --preset clang -B build/lint -DVELA_BENCH=ON -DVELA_FUZZ=ON -DCMAKE_UNITY_BUILD=OFF >/dev/null
for source in $sources; do
  if grep -qF "\"$PWD/$source\"" build/lint/compile_commands.json; then echo "$source"; fi
done | xargs -r -P "$(nproc)" -n 1 clang-tidy --quiet -p build/lint 2> >(grep -v 'generated\.$' >&2)
