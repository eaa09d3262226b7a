"""A name that is declared and not exported, or exported and not declared, is noticed; and every
form of declaration that a public header may use is understood. Usage: exports_planted.py C-COMPILER"""
import os
import subprocess
import sys
import tempfile

import exports
import tree

HEADER = """
typedef int (*Work)(int);
API int plain(int x);
API const char *text(int x);
API Work table(int a, int b, int *status);
API int (*returned(int a))(int);
API extern const int numbers[4];
API int with$dollar(void);
API void
over_lines(int a,
           Work work);
int unmarked(void);
"""
NAMES = {"plain", "text", "table", "returned", "numbers", "with$dollar", "over_lines"}
SOURCE = """
int marked(void) { return 1; }
__attribute__((visibility("hidden"))) int helper(void) { return 2; }
"""


def main():
    found = exports.declared(HEADER.replace("API", exports.MARK))
    complaints = [f"{name}: parsed wrongly" for name in sorted(found ^ NAMES)]
    with tempfile.TemporaryDirectory() as folder:
        library = os.path.join(folder, "libx.so")
        subprocess.run([sys.argv[1], "-shared", "-fPIC", "-x", "c", "-", "-o", library], input=SOURCE,
                       text=True, check=True)
        if exports.exported(library) != {"marked"}:
            complaints.append(f"exported: {exports.exported(library)}")
    tree.finish(complaints, len(NAMES) + 1, "names")


main()
