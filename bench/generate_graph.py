#!/usr/bin/env python3
"""Writes a graph file of N nodes and 3N edges for whole-program measurements,
and the code files its nodes point at.

    bench/generate_graph.py 1000000 /tmp/big/graph.json

Half the nodes are files, half functions; every node has three outgoing call
edges. Beside the graph file, in its folder, the generator writes M code files
`src/modJ.qx` (M grows with N, from 10 to 1,000), each defining four
functions. A quarter of the file nodes are such files (present); the others
name files that are not there (a tenth of all file nodes are unresolved).
Function nodes are in those code files without a `path` of their own (their
path is their first location entry); four in five name a function their file
defines, the fifth one it does not, so the missing-function analyzer parses
real files (once each, then from its cache) and finds both outcomes.
"""
import os
import sys

DEFINED = 4  # functions each code file defines


def code_file_count(count):
    return max(10, min(1000, count // 100))


def write_code_files(folder, files):
    os.makedirs(os.path.join(folder, "src"), exist_ok=True)
    for j in range(files):
        with open(os.path.join(folder, "src", f"mod{j}.qx"), "w", encoding="utf-8") as f:
            for q in range(DEFINED):
                f.write(f"function y = mod{j}_f{q}(x)\n    % Step {q} of module {j}.\n"
                        f"    y = x * {q + 1} + {j};\nend\n\n")


def main():
    count, out = int(sys.argv[1]), sys.argv[2]
    folder = os.path.dirname(os.path.abspath(out))
    files = code_file_count(count)
    write_code_files(folder, files)
    with open(out, "w", encoding="utf-8") as f:
        f.write('{"format": "depattr-graph", "version": 1,\n"nodes": [\n')
        for i in range(count):
            sep = ",\n" if i else ""
            k = i // 2
            if i % 2 == 0:
                resolved = "false" if i % 20 == 0 else "true"
                path = f"src/mod{k % files}.qx" if k % 4 == 1 else f"src/pkg{i % 97}/file{i}.qx"
                f.write(f'{sep}{{"id": "f{i}", "type": "file", "path": "{path}", "resolved": {resolved}}}')
            else:
                j, q = k % files, (k // files) % (DEFINED + 1)
                f.write(f'{sep}{{"id": "f{i}", "type": "function", "name": "fn{i}", '
                        f'"location": ["src/mod{j}.qx", "mod{j}_f{q}"]}}')
        f.write('\n],\n"edges": [\n')
        first = True
        for i in range(count):
            for k in (1, 2, 3):
                f.write(("" if first else ",\n") + f'{{"from": "f{i}", "to": "f{(i * 7 + k) % count}", "type": "call"}}')
                first = False
        f.write("\n]}\n")


if __name__ == "__main__":
    main()
