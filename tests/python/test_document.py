"""The code of the documents runs: each block of Python is a test file of a user."""

import os
import pathlib
import re

import pytest

pytest_plugins = "pytester"

SOURCE = pathlib.Path(os.environ["CAIRN_SOURCE"])


def blocks():
    for document in (SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))):
        text = document.read_text()
        for match in re.finditer(r"^```python\n(.*?)^```$", text, re.DOTALL | re.MULTILINE):
            line = text[: match.start(1)].count("\n") + 1
            yield pytest.param(match[1], id=f"{document.name}:{line}")
    yield pytest.param((SOURCE / "examples/test_tunnels.py").read_text(), id="test_tunnels.py")


BLOCKS = list(blocks())


def test_there_are_blocks():
    names = [block.id.partition(":")[0] for block in BLOCKS]
    assert names.count("README.md") >= 1 and names.count("python.md") >= 8


@pytest.mark.parametrize("code", BLOCKS)
def test_block(code, pytester):
    pytester.makepyfile(code)
    result = pytester.runpytest_subprocess("-p", "no:cacheprovider", "-q")
    result.assert_outcomes(passed=len(re.findall(r"^def test_", code, re.MULTILINE)))
