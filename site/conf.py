"""How Sphinx makes the web site of what stage.py has laid out. See script/site."""

project = "Quorvel"
root_doc = "index"
extensions = ["myst_parser", "sphinxcontrib.mermaid"]
nitpicky = True
myst_heading_anchors = 4

html_theme = "furo"
html_title = "Quorvel"
html_static_path = ["_static"]
html_css_files = ["site.css"]
html_show_copyright = False
html_show_sphinx = False
html_copy_source = False
html_show_sourcelink = False
html_permalinks_icon = "#"

# The diagrams are drawn in the reader's browser, by what lies beside the pages: nothing is fetched from elsewhere.
mermaid_version = ""
mermaid_init_js = ""
html_js_files = ["mermaid.min.js", "diagrams.js"]
