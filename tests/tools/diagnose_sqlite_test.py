#!/usr/bin/env python3
"""Loads the lines of cairn-lt diagnose --format ndjson into SQLite as they are, and asks it for what happened most.

    diagnose_sqlite_test.py CAIRN_LT
"""

import pathlib
import sqlite3
import subprocess
import sys
import tempfile

FAILED = (
    'Cairn/CairnLtHelper:286 bcmlt_entry_field_add( egrTunnelEcnEncapEntry, "OUTER_ECN", outerEcn ) '
    "API ERROR:value is too wide for the field (-14)\n"
)
MISUSE = "Kiln activity lock: taken by a thread that holds it already\n"

with tempfile.TemporaryDirectory() as folder:
    for day in range(1, 4):
        (pathlib.Path(folder) / f"{day}.log").write_text(f"2026-03-0{day}T07:30:00Z leaf agent[{day}]: {FAILED}")
    (pathlib.Path(folder) / "4.log").write_text(MISUSE)
    lines = subprocess.run(
        [sys.argv[1], "diagnose", folder, "--format", "ndjson"], stdout=subprocess.PIPE, check=True, text=True
    ).stdout.splitlines()

store = sqlite3.connect(":memory:")
store.execute("create table stop ( line text )")
store.executemany("insert into stop values ( ? )", [(line,) for line in lines])
found = store.execute(
    """
    select line ->> '$.recipe', line ->> '$.rc', count(*), min( line ->> '$.time' ), max( line ->> '$.time' )
    from stop where line ->> '$.schema' = 1 and line ->> '$.kind' = 'api_error' group by 1, 2
    """
).fetchall()
expected = [("setEgrTunnelEcnEncap", -14, 3, "2026-03-01T07:30:00.000000000Z", "2026-03-03T07:30:00.000000000Z")]
if found != expected:
    sys.exit(f"found {found}, expected {expected}")
