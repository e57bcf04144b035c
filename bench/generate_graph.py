#!/usr/bin/env python3
"""Writes a graph file of N nodes and 3N edges for whole-program measurements.

    bench/generate_graph.py 1000000 /tmp/big/graph.json

Half the nodes are files (a tenth of them unresolved), half functions; every
node has three outgoing call edges. Nothing on disk is needed: the files are
reported missing, which is the costlier path for the missing-file analyzer.
"""
import os
import sys


def main():
    count, out = int(sys.argv[1]), sys.argv[2]
    os.makedirs(os.path.dirname(os.path.abspath(out)), exist_ok=True)
    with open(out, "w", encoding="utf-8") as f:
        f.write('{"format": "depattr-graph", "version": 1,\n"nodes": [\n')
        for i in range(count):
            sep = ",\n" if i else ""
            if i % 2 == 0:
                resolved = "false" if i % 20 == 0 else "true"
                f.write(f'{sep}{{"id": "f{i}", "type": "file", "path": "src/pkg{i % 97}/file{i}.qx", '
                        f'"resolved": {resolved}}}')
            else:
                f.write(f'{sep}{{"id": "f{i}", "type": "function", "name": "fn{i}", '
                        f'"location": ["src/file{i}.qx", "fn{i}"]}}')
        f.write('\n],\n"edges": [\n')
        first = True
        for i in range(count):
            for k in (1, 2, 3):
                f.write(("" if first else ",\n") + f'{{"from": "f{i}", "to": "f{(i * 7 + k) % count}", "type": "call"}}')
                first = False
        f.write("\n]}\n")


if __name__ == "__main__":
    main()
