#!/usr/bin/env python3
"""Branch coverage of the code that runs without an exception, from gcov's own flow graphs.

gcovr's --exclude-throw-branches leaves out the edges by which a call throws, but not the
branches inside the blocks that run only while an exception unwinds: the loops that destroy the
elements of a half-built initializer list, the clean-ups of temporaries. A braced JSON object of
four members leaves a hundred such branches on its closing line. gcov itself knows these blocks
(it marks their lines "=====" and, with -a, their blocks "$$$$$"): a block is exceptional when no
path from the function's entry reaches it without a throw edge. This script reads each object's
graph (.gcno) and gcov's JSON counts, checks that the two list the same branches on every line,
and counts branches twice: all but the throw edges (which is gcovr's count) and those outside
exceptional blocks.

  scripts/branch_coverage.py BUILD-DIR SOURCE-PREFIX...

Prints per file and in total: branches, taken, and the same without exceptional blocks.
"""
import collections
import json
import os
import re
import struct
import subprocess
import sys
import tempfile

FAKE, FALLTHROUGH = 2, 4
TAG_FUNCTION, TAG_ARCS, TAG_LINES = 0x01000000, 0x01430000, 0x01450000


class Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def u32(self):
        value = struct.unpack_from('<I', self.data, self.at)[0]
        self.at += 4
        return value

    def string(self):
        length = self.u32()  # bytes, with the NUL (gcc 12 and later)
        text = self.data[self.at:self.at + length].rstrip(b'\0').decode()
        self.at += length
        return text


class Function:
    def __init__(self, name, source, start_line, start_column, end_line):
        self.name, self.source = name, source
        self.start_line, self.start_column, self.end_line = start_line, start_column, end_line
        self.succ = collections.defaultdict(list)  # block -> [(dst, flags)]
        self.lines = {}  # block -> [(file, line)]


def read_gcno(path):
    r = Reader(open(path, 'rb').read())
    if r.u32() != 0x67636E6F:
        raise SystemExit(f'{path}: not a gcno file')
    r.u32(), r.u32(), r.u32()  # version, stamp, checksum
    cwd = r.string()
    r.u32()  # has_unexecuted_blocks
    functions, fn = [], None
    while r.at + 8 <= len(r.data):
        tag, length = r.u32(), r.u32()
        end = r.at + length
        if tag == TAG_FUNCTION:
            r.u32(), r.u32(), r.u32()  # ident, checksums
            name = r.string()
            r.u32()  # artificial
            source = r.string()
            start_line, start_column, end_line = r.u32(), r.u32(), r.u32()
            fn = Function(name, os.path.normpath(os.path.join(cwd, source)), start_line, start_column,
                          end_line)
            functions.append(fn)
        elif tag == TAG_ARCS:
            src = r.u32()
            while r.at < end:
                fn.succ[src].append((r.u32(), r.u32()))
        elif tag == TAG_LINES:
            block, file, lines = r.u32(), None, []
            while r.at < end:
                line = r.u32()
                if line == 0:
                    name = r.string()
                    if not name:
                        break
                    file = os.path.normpath(os.path.join(cwd, name))
                else:
                    lines.append((file, line))
            fn.lines[block] = lines
        r.at = end
    return functions


def listed_branches(fn):
    """Per block, the branches gcov reports, in its order: [(throw, exceptional)]; as gcov's
    read_graph_file, solve_flow_graph and find_exception_blocks decide them."""
    throw = set()
    for src, arcs in fn.succ.items():
        if src != 0 and any(flags & FAKE for _, flags in arcs):
            throw.update((src, dst) for dst, flags in arcs if not flags & (FAKE | FALLTHROUGH))
    reached, queue = {0}, [0]
    while queue:
        src = queue.pop()
        for dst, flags in fn.succ.get(src, []):
            if not flags & FAKE and (src, dst) not in throw and dst not in reached:
                reached.add(dst)
                queue.append(dst)
    has_catch = bool(throw)
    listed = {}
    for src, arcs in fn.succ.items():
        real = [(dst, flags) for dst, flags in sorted(arcs, key=lambda a: a[0]) if not flags & FAKE]
        if len(real) < 2:
            continue  # an unconditional jump, and calls: no branches
        exceptional = has_catch and src not in reached
        listed[src] = [((src, dst) in throw, exceptional) for dst, _ in real]
    return listed


def branches_by_line(functions):
    """What gcov lists on each line of one object: (file, line, group function or '') ->
    [(throw, exceptional)]. Group functions (same file and start line, as a template's
    instantiations) keep their own lines; the rest share the file's, in order of where they start."""
    starts = collections.Counter((fn.source, fn.start_line) for fn in functions)
    expected = collections.defaultdict(list)
    for fn in sorted(functions, key=lambda f: (f.start_line, f.start_column)):
        group = starts[(fn.source, fn.start_line)] > 1
        for block, branches in sorted(listed_branches(fn).items()):
            lines = fn.lines.get(block)
            if not lines:
                continue
            # gcov puts a block's branches on the highest of its lines.
            file, line = max(lines, key=lambda place: place[1])
            own = group and file == fn.source and fn.start_line <= line <= fn.end_line
            expected[(file, line, fn.name if own else '')].extend(branches)
    return expected


SOURCES = {}


def can_contain_branches(path, line):
    """As gcovr's --exclude-unreachable-branches: a line of nothing but braces has none."""
    if path not in SOURCES:
        with open(path, errors='replace') as f:
            SOURCES[path] = f.read().split('\n')
    code = SOURCES[path][line - 1] if line <= len(SOURCES[path]) else ''
    code = re.sub(r'//.*', '', re.sub(r'/\*.*?\*/', '', code)).replace(' ', '').strip()
    return code not in ('', '{', '}', '{}')


def tally(merged):
    """Per file: [branches, taken, branches outside exceptional blocks, taken of those], throw
    edges left out."""
    per_file = collections.defaultdict(lambda: [0, 0, 0, 0])
    for (path, _), branches in merged.items():
        row = per_file[os.path.relpath(path)]
        for throw, exceptional, taken in branches:
            if throw:
                continue
            row[0] += 1
            row[1] += taken
            if not exceptional:
                row[2] += 1
                row[3] += taken
    return per_file


def objects_with_data(build, wanted):
    """Each object below BUILD that was run and compiled some WANTED source: its functions as its
    graph gives them, and its .gcda."""
    for root, _, files in os.walk(build):
        for name in files:
            gcno = os.path.join(root, name)
            gcda = gcno[:-5] + '.gcda'
            if not name.endswith('.gcno') or not os.path.exists(gcda):
                continue
            functions = read_gcno(gcno)
            if any(wanted(fn.source) for fn in functions):
                yield functions, gcda


def gcov_lines(gcda, wanted):
    """(path, line entry) for each line of a WANTED source in gcov's JSON for GCDA."""
    with tempfile.TemporaryDirectory() as scratch:
        run = subprocess.run(['gcov', '--json-format', '--stdout', '--branch-probabilities', os.path.abspath(gcda)],
                             cwd=scratch, capture_output=True, check=False)
    if run.returncode != 0:
        raise SystemExit(f'gcov failed on {gcda}: {run.stderr.decode(errors="replace").strip()}')
    # One JSON document per line of output.
    for document in (json.loads(line) for line in run.stdout.splitlines() if line.strip()):
        for f in document['files']:
            path = os.path.normpath(os.path.join(document['current_working_directory'], f['file']))
            if wanted(path):
                for entry in f['lines']:
                    yield path, entry


def main():
    if len(sys.argv) < 3 or sys.argv[1] in ('-h', '--help'):
        print(__doc__.strip())
        return 0 if len(sys.argv) > 1 else 2
    build, prefixes = sys.argv[1], [os.path.abspath(p) for p in sys.argv[2:]]
    wanted = lambda path: any(path.startswith(p) for p in prefixes)
    # (file, line) -> [[throw, exceptional, taken]] merged over objects by position.
    merged = {}
    disagreements = []
    for functions, gcda in objects_with_data(build, wanted):
        expected = branches_by_line(functions)
        for path, entry in gcov_lines(gcda, wanted):
            line, got = entry['line_number'], entry['branches']
            key = (path, line, entry.get('function_name', ''))
            want = expected.get(key) if key in expected else expected.get((path, line, ''), [])
            if len(want) != len(got) or any(w[0] != g['throw'] for w, g in zip(want, got)):
                # Counted as gcov lists them, none of them exceptional.
                disagreements.append(f'{os.path.relpath(path)}:{line}')
                want = [(g['throw'], False) for g in got]
            if not can_contain_branches(path, line):
                continue
            slot = merged.setdefault((path, line), [])
            for i, (w, g) in enumerate(zip(want, got)):
                if i == len(slot):
                    slot.append([w[0], w[1], False])
                slot[i][2] = slot[i][2] or g['count'] > 0
    if not merged:
        print(f'no coverage data for {" ".join(sys.argv[2:])} in {build}: run the tests of a --coverage build first',
              file=sys.stderr)
        return 1
    if len(disagreements) * 100 > len(merged):
        # A handful is gcov's own doing; more means this script misreads the graphs (another
        # gcc's format, say), and its count would be wrong.
        print(f'the graphs disagree with gcov on {len(disagreements)} of {len(merged)} lines: '
              'this gcc\'s .gcno is not read right; no count', file=sys.stderr)
        return 1
    per_file = tally(merged)
    totals = [sum(r[i] for r in per_file.values()) for i in range(4)]
    pct = lambda a, b: f'{100.0 * a / b:5.1f} %' if b else '    - '
    print(f'{"file":44} {"branches":>9} {"taken":>7} {"cover":>8}   {"outside exceptional blocks":>26}')
    for path, r in sorted(per_file.items(), key=lambda kv: (kv[1][3] / kv[1][2]) if kv[1][2] else 1):
        print(f'{path:44} {r[0]:9} {r[1]:7} {pct(r[1], r[0]):>8}   {r[2]:9} {r[3]:7} {pct(r[3], r[2]):>8}')
    print(f'{"TOTAL":44} {totals[0]:9} {totals[1]:7} {pct(totals[1], totals[0]):>8}   '
          f'{totals[2]:9} {totals[3]:7} {pct(totals[3], totals[2]):>8}')
    if disagreements:
        print(f'{len(disagreements)} lines where the graph and gcov list different branches, counted as '
              f'gcov lists them, none exceptional: {" ".join(disagreements)}')
    return 0


if __name__ == '__main__':
    sys.exit(main())
