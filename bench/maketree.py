#!/usr/bin/env python3
"""Deterministic folder tree for the scan benchmarks and for trying the program by hand.

usage: maketree.py DEST [FILES] [SEED]

Breadth first: every folder gets 6 to 18 files and 1 to 6 subfolders until FILES files exist.
Files are sparse (truncated to size), so the tree is large in bytes and small on disk; names mix
plain ASCII with blanks, umlauts and the odd byte that is not UTF-8, as real disks do.
"""
import os
import random
import sys

dest = os.fsencode(sys.argv[1])
total = int(sys.argv[2]) if len(sys.argv) > 2 else 200000
rnd = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 1)
exts = [b"txt", b"jpg", b"png", b"mp4", b"log", b"so", b"c", b"pdf"]
words = [b"data", b"Bilder", b"M\xc3\xbcller", b"tmp cache", b"src", b"backup", b"raw\xff", b"x"]

os.makedirs(dest, exist_ok=True)
made = folders = 0
queue = [dest]
while queue and made < total:
    folder = queue.pop(0)
    for i in range(rnd.randint(6, 18)):
        if made >= total:
            break
        name = b"%s_%05d.%s" % (rnd.choice(words), i, rnd.choice(exts))
        with open(os.path.join(folder, name), "wb") as f:
            f.truncate(int(rnd.paretovariate(1.2) * 4096) % (1 << 40))
        made += 1
    for j in range(rnd.randint(1, 6)):
        sub = os.path.join(folder, b"%s %02d" % (rnd.choice(words), j))
        os.makedirs(sub, exist_ok=True)
        folders += 1
        queue.append(sub)
print(f"files={made} folders={folders}")
