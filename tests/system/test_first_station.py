"""The walk to a first station script: what docs/simulator.md tells the reader to type does what it says."""

import os
import re
import subprocess
from pathlib import Path

from bench import GATEWAY

PAGE = Path(__file__).parents[2] / "docs/simulator.md"
HEADING = "## From nothing to a first station script in ten minutes\n"


def blocks(language):
    """The blocks of a language in the walk."""
    walk = PAGE.read_text().split(HEADING)[1].split("\n## ")[0]
    return re.findall(rf"^```{language}\n(.*?)^```$", walk, re.DOTALL | re.MULTILINE)


def steps():
    """Each command with what it prints; "..." stands for any part of a line."""
    for block in blocks("console"):
        for step in block.split("$ ")[1:]:
            command, _, output = step.partition("\n")
            yield command, output


def test_walk_leads_where_the_page_says(bench, tmp_path):
    (script,) = blocks("python")
    (tmp_path / "first_station.py").write_text(script)
    path = os.pathsep.join([str(Path(GATEWAY).parent), os.environ["PATH"]])
    environment = {**os.environ, "PATH": path, "GATEWAY_UNIT": str(bench.folder), "PYTHONDONTWRITEBYTECODE": "1"}
    walked = 0
    for command, expected in steps():
        answer = subprocess.run(
            command, shell=True, cwd=tmp_path, env=environment, capture_output=True, text=True, timeout=120
        )
        pattern = re.escape(expected).replace(re.escape("..."), ".*")
        assert re.fullmatch(pattern, answer.stdout), f"{command}\n{answer.stdout}{answer.stderr}"
        walked += 1
    assert walked > 8
    assert bench.cells("ProductionData")[0]["SerialNum"] == "4713"
