#!/usr/bin/env bash
# Runs one of the editor tests of pcfg lsp on a scratch copy of the example, or skips it (status 77,
# which ctest reports as skipped) when its editor, its Node modules or a version it needs is missing.
#   run_editor_test.sh node|node-benchmark|nvim|vim PCFG EXAMPLE TOOL
# TOOL is the path CMake found for node, nvim or vim (…-NOTFOUND when there is none). The editors
# run with a scratch HOME and XDG folders, never the user's, and under a time limit: a test that
# hangs fails.
set -euo pipefail
kind=$1 pcfg=$2 example=$3 tool=$4
here=$(cd "$(dirname "$0")" && pwd)
limit=60  # seconds for the whole test; it takes a few

skip() {
  echo "SKIPPED: $kind: $*"
  exit 77
}
[ -x "$pcfg" ] || { echo "no pcfg at $pcfg" >&2; exit 1; }
[ -n "$tool" ] && [ -x "$tool" ] || skip "$kind not found (scripts/setup.sh installs it)"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/pcfg-editor-test.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
: >"$scratch/stdin"  # the editors read no terminal
export HOME=$scratch XDG_CONFIG_HOME=$scratch/config XDG_DATA_HOME=$scratch/data \
  XDG_STATE_HOME=$scratch/state XDG_CACHE_HOME=$scratch/cache

case "$kind" in
  node | node-benchmark)
    modules=$here/../../node_modules
    [ -f "$modules/vscode-jsonrpc/package.json" ] && [ -f "$modules/vscode-languageserver-protocol/package.json" ] ||
      skip "the Node modules vscode-jsonrpc and vscode-languageserver-protocol are not in node_modules/ (npm ci installs them)"
    major=$("$tool" -p 'process.versions.node.split(".")[0]')
    [ "$major" -ge 18 ] || skip "node $major has no node:test (18 or later needed)"
    ;;
  nvim)
    # vim.lsp.start_client and vim.diagnostic came with 0.7.
    timeout -k 5 20 "$tool" --headless -u NONE -i NONE --clean -c 'lua if vim.diagnostic == nil or vim.lsp.start_client == nil then vim.cmd("cquit 1") end' \
      -c 'qall!' <"$scratch/stdin" || skip "$("$tool" --version | head -1) is older than 0.7"
    ;;
  vim)
    # The lsp channel mode came with 8.2.4648; indexof(), which the test uses, later in 9.0.
    timeout -k 5 20 "$tool" -N -u NONE -i NONE -es -c 'if !has("job") || !has("channel") || !has("patch-8.2.4648") || !exists("*indexof") | cquit 1 | endif' \
      -c 'qall!' <"$scratch/stdin" || skip "this Vim has no job channels in lsp mode (Vim 9 with +job and +channel has)"
    ;;
  *)
    echo "unknown editor test: $kind" >&2
    exit 2
    ;;
esac

copy=$scratch/$(basename "$example")
cp "$example" "$copy"
export PCFG=$pcfg PCFG_LSP_FILE=$copy

case "$kind" in
  node) command=("$tool" "$here/lsp_client_test.mjs" "$pcfg" "$copy") ;;
  # The whole-process benchmark, a few rounds: that it runs to its table.
  node-benchmark) command=("$tool" "$here/../../benchmarks/lsp_process_benchmark.mjs" "$pcfg" "$copy"
    --opens 2 --edits 4 --requests 3) ;;
  nvim) command=("$tool" --headless -u NONE -i NONE -c "luafile $here/nvim_lsp_test.lua") ;;
  vim) command=("$tool" -N -u NONE -i NONE -es -S "$here/vim_lsp_test.vim") ;;
esac
status=0
timeout -k 5 "$limit" "${command[@]}" <"$scratch/stdin" || status=$?
if [ "$status" -eq 124 ] || [ "$status" -eq 137 ]; then
  echo "$kind: no end within $limit s: stopped" >&2
  exit 1
fi
exit "$status"
