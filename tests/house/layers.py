"""An include points only at a lower layer that its room may use. `layers.py` checks the tree,
`layers.py --planted` checks that breaches planted in a small tree are all reported."""
import os
import re
import sys
import tempfile

import tree

# Room: the rooms it may include besides itself and include/. morph/shape lies below the filters and
# is a room of its own here.
ROOMS = {
    "zu": [],
    "util": [],
    "geometry": [],
    "core": [],
    "morph/shape": ["core"],
    "convert": ["core", "morph/shape"],
    "stats": ["core"],
    "arith": ["core", "convert"],
    "compare": ["core", "convert", "stats"],
    "resize": ["core"],
    "filter": ["core", "convert", "arith", "morph/shape"],
    "morph": ["core", "convert", "arith", "filter", "morph/shape"],
    "region": ["core", "stats"],
}
# The two libraries neither print nor throw.
REFUSED = {"iostream", "ostream", "istream", "sstream", "fstream", "iomanip", "stdexcept", "exception",
           "typeinfo", "cstdio", "stdio.h"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.M)
CODE = (".h", ".hpp", ".cpp", ".c", ".inc")


def room_of(path):
    """The room of a path relative to src/."""
    return "morph/shape" if re.match(r"morph/shape\.", path) else path.split("/")[0]


def resolve(root, includer, name):
    """Path of a quoted include relative to src/, or None: first beside the includer, then src/."""
    for base in (os.path.dirname(os.path.join("src", includer)), "src"):
        path = os.path.normpath(os.path.join(base, name))
        if os.path.isfile(os.path.join(root, path)):
            return os.path.relpath(path, "src")
    return None


def check_source(root, path, complaints):
    room = room_of(path)
    if room not in ROOMS:
        complaints.append(f"src/{path}: the table knows no room {room}")
        return
    for bracket, name in INCLUDE.findall(tree.read("src/" + path, root)):
        top = name.split("/")[0]
        if bracket == "<" or top in ("kipx", "zu") and os.path.isfile(os.path.join(root, "include", name)):
            if name in REFUSED:
                complaints.append(f"src/{path}: <{name}> has no place in a library")
            if room == "zu" and top == "kipx":
                complaints.append(f"src/{path}: the base runtime knows nothing of <{name}>")
            continue
        target = resolve(root, path, name)
        if target is None:
            complaints.append(f'src/{path}: "{name}" is not in src/')
        elif room_of(target) != room and room_of(target) not in ROOMS[room]:
            complaints.append(f"src/{path}: {room} may not include {target}")


def check_outside(root, path, complaints):
    """Public headers and tools see include/ only."""
    for _, name in INCLUDE.findall(tree.read(path, root)):
        inside_src = os.path.isfile(os.path.join(root, "src", name))
        beside = os.path.normpath(os.path.join(os.path.dirname(path), name))
        if beside.startswith("src/") or inside_src and not os.path.isfile(os.path.join(root, beside)):
            complaints.append(f"{path}: may not include {name} of src/")
        if path.startswith("include/zu/") and name.startswith("kipx/"):
            complaints.append(f"{path}: the base runtime knows nothing of {name}")


def check(root):
    complaints, paths = [], tree.files("src", suffixes=CODE, root=root)
    for path in paths:
        check_source(root, os.path.relpath(path, "src"), complaints)
    outside = tree.files("include", "tools", suffixes=CODE, root=root)
    for path in outside:
        check_outside(root, path, complaints)
    return complaints, len(paths) + len(outside)


PLANTED = {  # file: (its text, does it breach?)
    "src/core/walk.h": ("#include <kipx/types.h>\n#include <cstring>\n", False),
    "src/core/up.cpp": ('#include "arith/ops.h"\n', True),
    "src/arith/ops.h": ('#include "core/walk.h"\n#include "own.inc"\n', False),
    "src/arith/own.inc": ("ROW(add)\n", False),
    "src/arith/loud.cpp": ("#  include <iostream>\n", True),
    "src/arith/across.cpp": ('#include "../compare/mask.h"\n', True),
    "src/compare/mask.h": ('#include "core/walk.h"\n', False),
    "src/filter/box.cpp": ('#include "morph/shape.h"\n', False),
    "src/filter/up.cpp": ('#include "morph/open.h"\n', True),
    "src/morph/shape.h": ('#include "core/walk.h"\n', False),
    "src/morph/shape.cpp": ('#include "filter/box.h"\n', True),
    "src/filter/box.h": ("", False),
    "src/morph/open.h": ('#include "filter/box.h"\n#include "morph/shape.h"\n', False),
    "src/zu/heap.cpp": ("#include <kipx/types.h>\n", True),
    "src/attic/old.cpp": ("", True),
    "src/region/gone.cpp": ('#include "region/nowhere.h"\n', True),
    "include/kipx/types.h": ("#include <stdint.h>\n", False),
    "include/kipx/deep.h": ('#include "core/walk.h"\n', True),
    "tools/kipx/main.cpp": ('#include <kipx/types.h>\n#include "core/walk.h"\n', True),
    "tools/kipx/fine.cpp": ("#include <kipx/types.h>\n#include <cstdio>\n", False),
}


def planted():
    with tempfile.TemporaryDirectory() as root:
        for path, (text, _) in PLANTED.items():
            os.makedirs(os.path.dirname(os.path.join(root, path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                file.write(text)
        complaints, _ = check(root)
    reported = {complaint.split(":")[0] for complaint in complaints}
    wrong = [f"{path}: {'not reported' if breach else 'reported without cause'}"
             for path, (_, breach) in PLANTED.items() if breach != (path in reported)]
    tree.finish(wrong, len(PLANTED), "planted files")


if sys.argv[1:] == ["--planted"]:
    planted()
tree.finish(*check(tree.ROOT), "files")
