"""What a tool has found, for the page that tells how the tree is tried."""

import datetime
import subprocess

from .run import ROOT


def write(name, figures):
    """docs/trust.d/NAME.txt: "name: value" lines."""
    commit = subprocess.run(["git", "rev-parse", "--short=12", "HEAD"], cwd=ROOT, stdout=subprocess.PIPE, text=True,
                            check=True).stdout.strip()
    date = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d")
    folder = ROOT / "docs" / "trust.d"
    folder.mkdir(parents=True, exist_ok=True)
    lines = [("date", date), ("commit", commit), *figures]
    (folder / f"{name}.txt").write_text("".join(f"{name}: {value}\n" for name, value in lines))
