#!/usr/bin/env python3
"""Writes the manifests by which winget installs a version: three files of YAML, as its repository wants them.

    winget.py <version> <folder with the installer> <URL of the folder that it is served from>

They go to winget/ of the folder. Their fields, patterns and lengths are those of the schema 1.6.0 (winget's own repository
has it as manifest.{version,installer,defaultLocale}.1.6.0.json), which check() holds them against.
"""

import hashlib
import os
import pathlib
import re
import sys
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1])]

import shipped # noqa: E402 (the path comes first)

IDENTIFIER = "halvorndev.CORVANE"
SCHEMA = "1.6.0"
# Of each field what the schema says: a pattern, and the largest length.
FIELDS = {
    "PackageIdentifier": (r"[^.\s\\/:*?\"<>|\x01-\x1f]{1,32}(\.[^.\s\\/:*?\"<>|\x01-\x1f]{1,32}){1,7}", 128),
    "PackageVersion": (r"[^\\/:*?\"<>|\x01-\x1f]+", 128),
    "PackageLocale": (r"([a-zA-Z]{2,3}|[iI]-[a-zA-Z]+|[xX]-[a-zA-Z]{1,8})(-[a-zA-Z]{1,8})*", 20),
    "DefaultLocale": (r"([a-zA-Z]{2,3}|[iI]-[a-zA-Z]+|[xX]-[a-zA-Z]{1,8})(-[a-zA-Z]{1,8})*", 20),
    "Publisher": (r".{2,}", 256), "PackageName": (r".{2,}", 256), "License": (r".{3,}", 512),
    "ShortDescription": (r".{3,}", 256), "PackageUrl": (r"[Hh][Tt][Tt][Pp][Ss]?://.+", 2048),
    "MinimumOSVersion": (r"(0|[1-9][0-9]{0,3}|[1-5][0-9]{4}|6[0-4][0-9]{3})(\.(0|[1-9][0-9]{0,4})){0,3}", 20),
    "InstallerType": (r"msix|msi|appx|exe|zip|inno|nullsoft|wix|burn|pwa|portable", 16),
    "Scope": (r"user|machine", 8), "UpgradeBehavior": (r"install|uninstallPrevious", 24),
    "Architecture": (r"x86|x64|arm|arm64|neutral", 8), "InstallerUrl": (r"[Hh][Tt][Tt][Pp][Ss]?://.+", 2048),
    "InstallerSha256": (r"[A-Fa-f0-9]{64}", 64), "Custom": (r".+", 2048), "ReleaseDate": (r"\d{4}-\d{2}-\d{2}", 10),
    "ManifestType": (r"version|installer|defaultLocale", 16), "ManifestVersion": (r"\d+\.\d+\.\d+", 20),
    "ProductCode": (r".+", 255), "InstallerReturnCode": (r"[1-9][0-9]*", 10),
    "ReturnResponse": (r"cancelledByUser|packageInUseByApplication|custom|contactSupport", 32),
}


class ManifestError(Exception):
    """A field that the schema doesn't take."""


def check(lines):
    """Every scalar is one that the schema takes."""
    for line in lines:
        if line.startswith("#"):
            continue
        name, separator, value = line.lstrip(" -").partition(": ")
        if not separator:
            continue
        value = value.strip('"')
        if name not in FIELDS:
            raise ManifestError(f"no such field: {name}")
        pattern, longest = FIELDS[name]
        if len(value) > longest or not re.fullmatch(pattern, value):
            raise ManifestError(f"{name} can't be “{value}”")


def head(kind):
    return [f"# yaml-language-server: $schema=https://aka.ms/winget-manifest.{kind}.{SCHEMA}.schema.json"]


def tail(kind):
    return [f"ManifestType: {kind}", f"ManifestVersion: {SCHEMA}"]


def of_code(code, response):
    return [f"- InstallerReturnCode: {code}", f"  ReturnResponse: {response}"]


def manifests(version, installer, url, seconds):
    digest = hashlib.sha256(installer.read_bytes()).hexdigest().upper()
    identity = [f"PackageIdentifier: {IDENTIFIER}", f'PackageVersion: "{version}"']

    def of_scope(scope, switch):
        return ["- Architecture: x64", f"  Scope: {scope}", f"  InstallerUrl: {url}/{installer.name}",
                f"  InstallerSha256: {digest}", "  InstallerSwitches:", f"    Custom: {switch}"]

    return {
        "": head("version") + identity + ["DefaultLocale: pt-BR"] + tail("version"),
        ".installer": head("installer") + identity + [
            "MinimumOSVersion: 10.0.17763.0", "InstallerType: nullsoft", "UpgradeBehavior: install",
            f"ReleaseDate: {time.strftime('%Y-%m-%d', time.gmtime(seconds))}", "ProductCode: CORVANE", "ExpectedReturnCodes:",
            *of_code(1, "cancelledByUser"), *of_code(3, "packageInUseByApplication"), "Installers:",
            *of_scope("user", "/CurrentUser"), *of_scope("machine", "/AllUsers")] + tail("installer"),
        ".locale.pt-BR": head("defaultLocale") + identity + [
            "PackageLocale: pt-BR", "Publisher: halvorndev", "PackageName: CORVANE", f"License: {shipped.licence()}",
            "ShortDescription: Controle de transmissões de vídeo ao vivo"] + tail("defaultLocale"),
    }


def main():
    version, folder, url = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
    installer = folder / f"CORVANE-{version}-win64.exe"
    target = folder / "winget"
    target.mkdir(exist_ok=True)
    try:
        for suffix, lines in manifests(version, installer, url, int(os.environ["SOURCE_DATE_EPOCH"])).items():
            check(lines)
            (target / f"{IDENTIFIER}{suffix}.yaml").write_text("\n".join(lines) + "\n", encoding="utf-8")
    except ManifestError as error:
        sys.exit(f"winget: {error}")
    print(f"winget    {target}/")


main()
