"""What a tool has found, for the page that tells how the tree is tried."""

import subprocess
import sys

from .run import ROOT


def write(name, figures):
    """To docs/trust.md, with the command as it was called."""
    command = " ".join(["tools/" + sys.argv[0].rsplit("/", 1)[-1], *(word for word in sys.argv[1:] if word != "--write")])
    subprocess.run([ROOT / "tools" / "trust", name, command], text=True, check=True,
                   input="".join(f"{name}: {value}\n" for name, value in figures))
