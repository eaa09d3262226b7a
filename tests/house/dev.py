"""./dev refuses arguments that a command has no use for, in one sentence and with status 2, before it installs or
builds anything. Usage: dev.py"""
import os
import shutil
import subprocess
import tempfile

import tree

REFUSED = ["fuzz abc", "fuzz 0", "fuzz -1", "docs extra", "bench --nope", "bench --peers a b", "test a b", "test [",
           "mutants nofile", "faults x", "coverage x", "digest x", "digest --write y", "check-abi x", "aarch64 a b"]


def complaints(folder):
    for name in ("dirname", "readlink"):  # and nothing that installs or builds
        os.symlink(shutil.which(name), os.path.join(folder, name))
    for line in REFUSED:
        ended = subprocess.run(["/bin/bash", os.path.join(tree.ROOT, "dev"), *line.split()], capture_output=True, text=True,
                               env={"PATH": folder})
        if ended.returncode != 2 or ended.stdout or ended.stderr.count("\n") != 1:
            yield f"./dev {line}: status {ended.returncode}: {ended.stdout}{ended.stderr}"


with tempfile.TemporaryDirectory() as place:
    tree.finish(list(complaints(place)), len(REFUSED), "refused command lines")
