#!/usr/bin/python3
"""What packages say of themselves: one licence from one place, changes as Debian wants them, every file accounted for."""
import importlib.util
import json
import pathlib
import shutil
import sys
import tempfile

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(TREE / "scripts")]

import shipped # noqa: E402 (the path comes first)


def loaded(path):
    spec = importlib.util.spec_from_file_location(path.stem, path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


debian = loaded(TREE / "scripts/linux/debian.py")


def refuses(what, act, *arguments):
    try:
        act(*arguments)
    except (shipped.ShippedError, debian.EntryError) as error:
        return str(error)
    raise AssertionError(f"{what} was taken")


def one_line_changes_the_licence(folder):
    shutil.copytree(TREE / "docs", folder / "docs", ignore=shutil.ignore_patterns("images"))
    text = (TREE / "LICENSE").read_text(encoding="utf-8")
    (folder / "LICENSE").write_text(text.replace("LicenseRef-proprietary", "MIT"), encoding="utf-8")
    assert "\nLicense: MIT\n" in debian.copyright_file(folder, "https://x")
    shipped.TREE = folder
    try:
        assert shipped.licence() == "MIT"
        bom = components(folder, {"corvane/corvane.exe": "0" * 64})
    finally:
        shipped.TREE = TREE
    assert bom["components"][0]["licenses"] == [{"license": {"id": "MIT"}}], bom
    assert bom["metadata"]["component"]["licenses"] == [{"license": {"id": "MIT"}}], bom


def components(folder, sums, versions=None):
    file = folder / "list.json"
    shipped.write_components(sums, "Files for Windows", "1.2.3", versions or {}, ["corvane/corvane.exe"], 86400, file)
    return json.loads(file.read_text(encoding="utf-8"))


def every_file_is_accounted_for(folder):
    qt = {"corvane/corvane.exe": "0" * 64, "corvane/Qt6Core.dll": "1" * 64}
    name = next(name for name, _, patterns in shipped.components("Files for Windows") if "Qt6Core.dll" in patterns)
    first = components(folder, qt, {name: "6.8.2"})
    assert first == components(folder, qt, {name: "6.8.2"}), "the same files make another list"
    assert [(entry["name"], entry["version"]) for entry in first["components"]] == [("CORVANE", "1.2.3"), (name, "6.8.2")]
    assert first["components"][1]["components"] == [
        {"type": "file", "name": "corvane/Qt6Core.dll", "hashes": [{"alg": "SHA-256", "content": "1" * 64}]}]
    assert first["metadata"]["timestamp"] == "1970-01-02T00:00:00Z"
    assert name in refuses("a component without a version", components, folder, qt)
    assert "other.dll" in refuses("an unknown file", components, folder, qt | {"corvane/other.dll": "2" * 64},
                                  {name: "6.8.2"})


def changes_as_debian_has_them():
    text = debian.debian_changelog("# Changes\n\n## 1.2.0, 2026-05-04\n\n- First `word`\n  and more.\n- Second.\n\n"
                                   "## 1.1.0, 2026-01-01\n\n- Older.\n", "1.2.0", 86400, "A <a@b.example>")
    assert text == ("corvane (1.2.0) bookworm; urgency=medium\n\n  * First word and more.\n  * Second.\n\n"
                    " -- A <a@b.example>  Fri, 02 Jan 1970 00:00:00 -0000\n"), text
    trees = debian.debian_changelog((TREE / "CHANGELOG.md").read_text(encoding="utf-8"), "1", 0, "A <a@b.example>")
    assert max(map(len, trees.splitlines())) <= 80
    refuses("a CHANGELOG without an entry", debian.debian_changelog, "# Changes\n", "1", 0, "A <a@b.example>")


def main():
    with tempfile.TemporaryDirectory() as folder:
        one_line_changes_the_licence(pathlib.Path(folder))
        every_file_is_accounted_for(pathlib.Path(folder))
    changes_as_debian_has_them()


main()
