# SPDX-License-Identifier: Apache-2.0
"""A maker's own headers: where docs/porting.md says that they may differ from ours the module
is still built, and where it says that they must be equal it is not, or looks for other
functions than the maker's libraries have. What all the differences that are allowed come to at
once, tests/agent/test_loading.py loads into an agent."""

import json
import os
import re
import subprocess
from pathlib import Path

import pytest

from variations import EVERY, LINKAGE, MAY_DIFFER, MUST_BE_EQUAL

REPOSITORY = Path(__file__).resolve().parents[2]
HEADERS = REPOSITORY / "platform/include"
BUILD = Path(os.environ.get("BUILD_DIR", REPOSITORY / "build"))


def module_sources():
    """The module's sources: file to the build's words for it, without where the object goes."""
    entries = json.loads((BUILD / "compile_commands.json").read_text())
    found = {}
    for entry in entries:
        words = entry["command"].split()
        if "/vsanmib_objects.dir/" in entry["command"]:
            found[Path(entry["file"])] = words[: words.index("-o")]
    assert len(found) > 10
    return found


SOURCES = module_sources()


def compiled(source, headers, *options):
    """Whether the compiler takes a source of the module, or one made up, with these headers."""
    command = SOURCES.get(source, next(iter(SOURCES.values())))
    words = [word.replace(str(HEADERS), str(headers)) for word in command]
    return subprocess.run([*words, *options, source], capture_output=True, timeout=300).returncode == 0


def written(folder, variation):
    """Headers that differ from ours in this one way."""
    headers = folder / "include"
    headers.mkdir()
    for header in HEADERS.glob("*.h"):
        text = header.read_text()
        changed = variation.apply(text) if variation.header in (EVERY, header.name) else text
        (headers / header.name).write_text(changed)
    return headers


def are_sound(headers, folder):
    """Whether headers can be included at all, so that it is the module that does without."""
    alone = folder / "alone.cpp"
    alone.write_text("".join(f'#include "{header.name}"\n' for header in sorted(headers.glob("*.h"))))
    return compiled(alone, headers, "-fsyntax-only")


def by_concern(variation, headers):
    """The sources, those in front that use most of what the variation changes."""
    ours, theirs = ((folder / variation.header).read_text().splitlines() for folder in (HEADERS, headers))
    changed = ours if variation.item == LINKAGE else set(ours) ^ set(theirs)
    words = set(re.findall(r"\w*_\w+", "\n".join(changed)))
    return sorted(SOURCES, key=lambda source: -len(words & set(re.findall(r"\w+", source.read_text()))))


def functions_looked_for(source, headers, folder):
    target = folder / "object.o"
    assert compiled(source, headers, "-c", "-o", target)
    listed = subprocess.run(["nm", "-u", target], capture_output=True, text=True, check=True, timeout=60).stdout
    return set(listed.split())


def ids(variations):
    return [f"{number}-{v.header.replace('*', 'all')}-{v.item}" for number, v in enumerate(variations)]


@pytest.mark.parametrize("variation", MAY_DIFFER, ids=ids(MAY_DIFFER))
def test_headers_that_differ_where_they_may_build_the_module(tmp_path, variation):
    headers = written(tmp_path, variation)
    concerned = SOURCES if variation.header == EVERY else by_concern(variation, headers)[:4]
    assert [source.name for source in concerned if not compiled(source, headers, "-fsyntax-only")] == []


@pytest.mark.parametrize("variation", MUST_BE_EQUAL, ids=ids(MUST_BE_EQUAL))
def test_headers_that_differ_where_they_must_not_are_noticed(tmp_path, variation):
    headers = written(tmp_path, variation)
    assert are_sound(headers, tmp_path)
    if variation.item == LINKAGE:
        source = by_concern(variation, headers)[0]
        assert functions_looked_for(source, headers, tmp_path) != functions_looked_for(source, HEADERS, tmp_path)
    else:
        assert any(not compiled(source, headers, "-fsyntax-only") for source in by_concern(variation, headers))


def documented(introduction):
    """The items of the list in docs/porting.md that follows a line."""
    text = (REPOSITORY / "docs/porting.md").read_text().partition(f"{introduction}\n\n")[2].partition("\n\n")[0]
    return [" ".join(item.split()) for item in re.split(r"^- ", text, flags=re.M)[1:]]


@pytest.mark.parametrize("introduction,variations", [("may differ from ours in", MAY_DIFFER),
                                                     ("must be equal to ours in", MUST_BE_EQUAL)])
def test_the_document_lists_what_is_tried_here_and_nothing_else(introduction, variations):
    items = documented(introduction)
    tried = {variation.item for variation in variations}
    assert len(items) == len(tried)
    assert [item for item in items if not item.startswith(tuple(tried))] == []
