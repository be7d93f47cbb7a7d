"""The documentation site; scripts/docs lays out its sources and builds it."""

import os
import sys
from importlib.metadata import version as version_of
from pathlib import Path

here = Path(__file__).parent

project = "Talven"
author = "the Talven authors"
release = version = version_of("talven")
html_title = f"Talven {release}"

extensions = [
    "myst_nb",
    "numpydoc",
    "sphinx.ext.autodoc",
    "sphinx_copybutton",
    "sphinx_design",
]
root_doc = "index"
exclude_patterns = ["_static", "docs/site", "**.ipynb_checkpoints"]
suppress_warnings = ["config.cache"]

# Pages in Markdown; those of docs/ link to each other and to the files beside README.md.
myst_enable_extensions = ["colon_fence", "deflist"]
myst_heading_anchors = 3

# Tutorials run when the site is built, each in a folder of its own; an error ends the build.
nb_execution_mode = "force"
nb_execution_in_temp = True
nb_execution_raise_on_error = True
nb_execution_timeout = 180
nb_merge_streams = True
os.environ["MATPLOTLIBRC"] = str(here / "matplotlibrc")
os.environ["PATH"] = f"{Path(sys.executable).parent}{os.pathsep}{os.environ['PATH']}"

# Docstrings; the types of parameters stand in them.
autodoc_typehints = "none"
autodoc_member_order = "bysource"
numpydoc_show_class_members = False
default_role = "py:obj"
add_module_names = False
maximum_signature_line_length = 88

html_theme = "pydata_sphinx_theme"
html_static_path = ["_static"]
html_css_files = ["talven.css"]
html_show_sourcelink = False
html_show_copyright = False
html_theme_options = {
    "navbar_align": "left",
    "navbar_end": ["theme-switcher"],
    "secondary_sidebar_items": ["page-toc"],
    "footer_start": ["sphinx-version"],
    "footer_end": [],
    "show_prev_next": True,
    "pygments_light_style": "tango",
    "pygments_dark_style": "github-dark",
}
