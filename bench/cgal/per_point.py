#!/usr/bin/env python3
# Where the surface triangulation's time goes, per point: instructions, D1 and LL misses
# (cachegrind's simulated caches) and minor page faults (/usr/bin/time), for the index order,
# the spatial order and CGAL on the scan and random sets of TinVsCgal, each less a run that
# only makes the points. Needs valgrind and GNU time.
# Run: python3 bench/cgal/per_point.py [POINTS=200000 [build/ci/bench/cgal/TinVsCgal]]
import os, subprocess, sys, tempfile
B = sys.argv[2] if len(sys.argv) > 2 else "build/ci/bench/cgal/TinVsCgal"
N = int(sys.argv[1]) if len(sys.argv) > 1 else 200000
def cg(what, s):
    out = os.path.join(tempfile.gettempdir(), f'kelscan-cg.{what}.{s}')
    subprocess.run(['valgrind', '--tool=cachegrind', '--cache-sim=yes', f'--cachegrind-out-file={out}', B, '--child', what, s, str(N)], capture_output=True)
    txt = subprocess.run(['cg_annotate', out], capture_output=True, text=True).stdout
    for line in txt.splitlines():
        if 'PROGRAM TOTALS' in line:
            f = [int(x.replace(',', '')) for x in line.split() if x[0].isdigit() and '%' not in x]
            # Ir I1mr ILmr Dr D1mr DLmr Dw D1mw DLmw
            return f[0], f[4] + f[7], f[5] + f[8]
def faults(what, s):
    r = subprocess.run(['/usr/bin/time', '-f', '%R', B, '--child', what, s, str(N)], capture_output=True, text=True)
    return int(r.stderr.strip().splitlines()[-1])
for s in ['scan', 'random']:
    for what, base in [('tin', 'tin-points'), ('spatial', 'tin-points'), ('cgal', 'cgal-points')]:
        a, b = cg(what, s), cg(base, s)
        fa, fb = faults(what, s), faults(base, s)
        print(f'{s:7s} {what:8s} instr/pt {(a[0]-b[0])/N:6.0f}  D1 miss/pt {(a[1]-b[1])/N:5.1f}  LL miss/pt {(a[2]-b[2])/N:5.2f}  page faults/pt {(fa-fb)/N:.4f}', flush=True)
