"""What packages that bring everything along have in common: the QML modules that the interface needs, whose work each file
is, lists of files with digests and of components.

Whose a file is stands in docs/licences.md, by patterns; a file that no row accounts for is an error.
"""
import fnmatch
import hashlib
import json
import pathlib
import re
import shutil
import uuid
from datetime import datetime, timezone

TREE = pathlib.Path(__file__).resolve().parents[1]
# Styles without use: every control has a fallback in Basic, and the window is in Material.
OTHER_STYLES = {"Fusion", "Imagine", "Universal", "Windows", "FluentWinUI3", "macOS", "iOS"}
# Files of a QML module for editing and checking, not for running.
NOT_AT_RUN_TIME = {".qmltypes", ".prl", ".a", ".debug"}


class ShippedError(Exception):
    """Reason why no package can be made, as a message."""


def qml_modules(scanned):
    """Folders of the QML modules that the interface imports, one through the other; `scanned` is what qmlimportscanner
    printed."""
    folders = set()
    for module in json.loads(scanned):
        path = module.get("path")
        if module.get("type") == "module" and path and not set(module["name"].split(".")) & OTHER_STYLES:
            folders.add(pathlib.Path(path))
    if not any(folder.name == "Material" for folder in folders):
        raise ShippedError("the scan of the interface's imports doesn't tell of the style Material")
    return sorted(folders)


def copy_module(folder, modules, target):
    """The files of one module out of the folder `modules`; modules below it are copied by themselves, if they are
    needed."""
    below = {path.parent for path in folder.rglob("qmldir") if path.parent != folder}
    for file in folder.rglob("*"):
        if not file.is_file() or file.suffix in NOT_AT_RUN_TIME or any(path in file.parents for path in below):
            continue
        place = target / "qml" / file.relative_to(modules)
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(file, place)


def copy_plugins(plugins, target, *names):
    """Of Qt's folder `plugins` into that of a program."""
    for name in names:
        place = target / "plugins" / name
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(plugins / name, place)


def licence(tree=None):
    """SPDX name of the program's own licence: the first line of LICENSE, in this tree or another."""
    first = ((tree or TREE) / "LICENSE").read_text(encoding="utf-8").splitlines()[0]
    return first.removeprefix("SPDX-License-Identifier: ")


def components(column):
    """[(name, licence, patterns)] of the table in docs/licences.md; `column` names that of the patterns."""
    rows = [[cell.strip() for cell in line.strip()[1:-1].split("|")]
            for line in (TREE / "docs/licences.md").read_text(encoding="utf-8").splitlines() if line.startswith("| ")]
    at = rows[0].index(column)
    return [(row[0], row[1], re.findall(r"`([^`]+)`", row[at])) for row in rows[1:]]


def digests(folder):
    """{relative path: SHA-256} of every file in it, in order of names."""
    return {file.relative_to(folder).as_posix(): hashlib.sha256(file.read_bytes()).hexdigest()
            for file in sorted(folder.rglob("*")) if file.is_file()}


def write_sums(sums, file):
    """As sha256sum has it, to be checked in the folder."""
    file.write_text("".join(f"{digest}  {name}\n" for name, digest in sums.items()), encoding="utf-8")


def _licence_entry(name):
    return {"expression": name} if " " in name else {"license": {"name": name} if name.startswith("LicenseRef-")
                                                     else {"id": name}}


def write_components(sums, column, version, versions, own, seconds, file):
    """The list of components in CycloneDX's JSON, version 1.5 of it: every file of the package, below whose work it is.

    `versions`: {component of docs/licences.md: version}, of what is linked into the programs too. `own`: patterns of
    CORVANE's files. The same files and times make the same list.
    """
    listed = [("CORVANE", licence(), own, version)]
    for name, its_licence, patterns in components(column):
        if patterns:
            listed.append((name, its_licence, patterns, versions.get(name)))
    unaccounted = dict(sums)
    entries = []
    for name, its_licence, patterns, its_version in listed:
        files = [path for path in unaccounted
                 if any(fnmatch.fnmatchcase(path, pattern) or fnmatch.fnmatchcase(path, "*/" + pattern)
                        for pattern in patterns)]
        if patterns == ["linked"]:
            if name not in versions:
                continue # an alternative of one that is
            its_version = versions[name]
        elif not files:
            continue
        elif not its_version:
            raise ShippedError(f"no version is known of {name}")
        entries.append({
            "type": "application" if name == "CORVANE" else "library", "bom-ref": name, "name": name,
            "version": its_version, "licenses": [_licence_entry(its_licence)],
            "components": [{"type": "file", "name": path, "hashes": [{"alg": "SHA-256", "content": unaccounted[path]}]}
                           for path in files]})
        for path in files:
            del unaccounted[path]
    if unaccounted:
        raise ShippedError(f"docs/licences.md doesn't tell whose these are: {', '.join(unaccounted)}")
    serial = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps([version, sums]))
    bom = {
        "bomFormat": "CycloneDX", "specVersion": "1.5", "serialNumber": f"urn:uuid:{serial}", "version": 1,
        "metadata": {
            "timestamp": datetime.fromtimestamp(seconds, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "component": {"type": "application", "bom-ref": "package", "name": "CORVANE", "version": version,
                          "licenses": [_licence_entry(licence())]}},
        "components": entries,
        "dependencies": [{"ref": "package", "dependsOn": [entry["bom-ref"] for entry in entries]}],
    }
    file.write_text(json.dumps(bom, indent=2, ensure_ascii=False) + "\n", encoding="utf-8")
