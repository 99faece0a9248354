#!/usr/bin/env bash
# scripts/branch_coverage.py on a program small enough to count by hand: a decision with one
# side taken, and a braced list of strings whose clean-ups run only if a constructor throws.
# All its branches but the throw edges: 8, 5 taken. Outside the blocks only an exception
# reaches: 6, 5 taken (the clean-up loop's two are gone; the untaken side of x > 5 stays).
set -euo pipefail
script=$1
command -v g++ >/dev/null && command -v gcov >/dev/null || { echo "no g++ or gcov: skipped"; exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cat >"$dir/fixture.cc" <<'CC'
#include <string>
#include <vector>
int Pick(int x) {
  if (x > 5) return 1;
  return 0;
}
std::vector<std::string> Make() {
  return {std::string("a"), std::string("b")};
}
int main(int argc, char**) { return Pick(argc) + static_cast<int>(Make().size()) - 2; }
CC
(cd "$dir" && g++ -O0 --coverage fixture.cc -o fixture && ./fixture)
out=$(python3 "$script" "$dir" "$dir")
echo "$out"
total=$(grep '^TOTAL' <<<"$out" | tr -s ' ')
[ "$total" = "TOTAL 8 5 62.5 % 6 5 83.3 %" ] || { echo "FAIL: expected 8 5 ... 6 5, got: $total"; exit 1; }
if grep -q 'lines where the graph and gcov list different branches' <<<"$out"; then
  echo "FAIL: the graph and gcov disagree on the fixture"
  exit 1
fi
echo "ok"
