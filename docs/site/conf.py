"""The documentation site; scripts/docs lays out its sources and builds it."""

import os
import re
import sys
from importlib.metadata import version as version_of
from pathlib import Path

from sphinx.application import Sphinx

here = Path(__file__).parent  # build/site-sources
repository = here.parents[1]

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


def drop_links(app: Sphinx, docname: str, source: list[str]) -> None:
    """Make links to files of the repository that are no pages of the site plain text."""
    folder = Path(docname).parent

    def look(link: re.Match[str]) -> str:
        path = folder / link[2]
        return link[1] if (repository / path).exists() and not (here / path).exists() else link[0]

    source[0] = re.sub(r"\[([^]]+)\]\((?!\w+:)([^)#]+)\)", look, source[0])


def setup(app: Sphinx) -> None:
    """Called by Sphinx."""
    app.connect("source-read", drop_links)
