"""Scripts and styles of a report, with the content security policy that admits only them."""

import base64
import hashlib
import os
from typing import Dict, NamedTuple

from .templates import FOLDER, Html, fill, read

NO_LIBRARY = "Built without the charting library: the picture is static."

_LIBRARY = os.path.join(FOLDER, "uplot")
_LIBRARY_SCRIPT, _LIBRARY_STYLE = "uplot/uPlot.iife.min.js", "uplot/uPlot.min.css"
_MODULES = ("scales", "spectrum", "drawing", "charts", "details", "input", "main")


class Assets(NamedTuple):
    """Scripts and styles of a page, and the policy that admits them."""

    style: Html
    scripts: Html  # elements at the end of the page
    policy: str


def is_interactive() -> bool:
    """Return True if the package contains the charting library."""
    return os.path.isdir(_LIBRARY)


def shared_files() -> Dict[str, str]:
    """Return the files, by name, that pages with a shared script need beside them.

    Another version of the script has another name, so that older pages keep theirs.
    """
    return {_script_name(): _script()} if is_interactive() else {}


def assets(style: str, shared: bool, has_form: bool) -> Assets:
    """Return scripts and styles of a page.

    style: further rules. shared: the script is a file beside the page. has_form: the page may
    send forms to its own server.
    """
    rules = read("report.css") + style
    if not is_interactive():
        return Assets(Html(rules), Html(""), _policy(rules, "'none'", has_form))
    rules = read(_LIBRARY_STYLE) + rules
    if shared:
        element = fill('<script src="$name"></script>', name=_script_name())
        return Assets(Html(rules), element, _policy(rules, "'self' file:", has_form))
    script = _script()
    element = Html(f"<script>{script}</script>")
    return Assets(Html(rules), element, _policy(rules, _hash(script), has_form))


def _script() -> str:
    modules = "\n".join(read(f"{name}.js") for name in _MODULES)
    own = f'(function () {{\n"use strict";\n{modules}\n}})();\n'
    return read(_LIBRARY_SCRIPT) + "\n" + own


def _script_name() -> str:
    return f"qar-report-{hashlib.sha256(_script().encode('utf-8')).hexdigest()[:8]}.js"


def _policy(style: str, script_source: str, has_form: bool) -> str:
    form_target = "'self'" if has_form else "'none'"
    return (
        f"default-src 'none'; script-src {script_source}; style-src {_hash(style)};"
        f" base-uri 'none'; form-action {form_target}"
    )


def _hash(text: str) -> str:
    digest = hashlib.sha256(text.encode("utf-8")).digest()
    return f"'sha256-{base64.b64encode(digest).decode('ascii')}'"
