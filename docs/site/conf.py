"""Settings of the documentation, which build.py puts together in build/docs."""
import os
import re
import sys
import warnings

import sphinx.domains.c
import sphinx.util.cfamily
from sphinx_gallery.sorting import FileNameSortKey

sys.dont_write_bytecode = True
project, author, copyright = "Kipx", "the Kipx developers", "the Kipx developers"
extensions = ["sphinx.ext.autodoc", "sphinx.ext.napoleon", "breathe", "myst_parser", "sphinx_gallery.gen_gallery"]
nitpicky = True
# Types of the C standard, which are nobody's page.
nitpick_ignore = [("c:identifier", name) for name in (
    *(f"{sign}int{bits}_t" for sign in ("", "u") for bits in (8, 16, 32, 64)), "size_t", "uintptr_t", "intptr_t")]
# Types that docstrings tell in words.
nitpick_ignore += [("py:class", word) for word in ("ndarray", "structured ndarray", "intp", "int32", "shape", "nodes")]
exclude_patterns = ["**/README.txt", "gallery/*.md5"]
suppress_warnings = ["myst.header"]  # a page may begin where it likes

breathe_projects = {"kipx": os.environ["KIPX_DOCS_XML"]}
breathe_default_project = "kipx"
breathe_domain_by_extension = {"h": "c"}
breathe_show_include = False
# C names may have a dollar in them here; Sphinx' own expression has none.
sphinx.domains.c.identifier_re = re.compile(
    sphinx.util.cfamily.identifier_re.pattern.replace(r"[a-zA-Z0-9_]*\b", r"[\w$]*"))

napoleon_google_docstring = False
napoleon_use_param = napoleon_use_rtype = napoleon_use_ivar = False
autodoc_typehints = "none"
autodoc_member_order = "bysource"
default_role = "literal"
myst_heading_anchors = 4

html_theme, html_title = "furo", "Kipx"
html_static_path = ["site.css"]
html_css_files = ["site.css"]
html_copy_source = html_show_sphinx = html_show_copyright = False
html_theme_options = {"top_of_page_button": None}
highlight_language = "text"
pygments_style = "friendly"

sphinx_gallery_conf = {
    "examples_dirs": "scripts", "gallery_dirs": "gallery", "filename_pattern": r"\.py$", "ignore_pattern": "^$",
    "within_subsection_order": FileNameSortKey,
    "abort_on_example_error": True, "plot_gallery": True, "download_all_examples": False,
    "show_memory": False, "remove_config_comments": True, "min_reported_time": 1e9, "show_signature": False,
    "line_numbers": False}
warnings.filterwarnings("ignore", message="Matplotlib is currently using agg")
