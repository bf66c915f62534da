#!/usr/bin/python3
"""The bill of materials of the packages, SPDX 2.3 in JSON: our packages and each of their files, what they link, run
and are built by, with versions and declared licences as the Debian packages of this machine tell them, or of the sysroot
of a cross build. Run by cpack on the staged files; the same files, tools and time make the same document."""

import argparse
import datetime
import functools
import glob
import hashlib
import json
import os
import pathlib
import re
import subprocess
import uuid

NAME = "truststore-update-client"
SBOM = f"usr/share/doc/{NAME}/{NAME}.spdx.json"
OWNERS = "Organization: the maintainers of truststore-update-client"
PACKAGES = {"daemon": NAME, "tools": f"{NAME}-tools", "bench": f"{NAME}-bench"}
# Libraries that are headers only and end up inside our programs; nothing at run time tells of them.
COMPILED_IN = {
    "daemon": ["libjsmn-dev", "nlohmann-json3-dev"],
    "tools": ["libjsmn-dev", "nlohmann-json3-dev", "libcli11-dev"],
    "bench": [],
}
RUN = {"daemon": [], "tools": [], "bench": ["python3", "python3-cryptography", "python3-paho-mqtt", "python3-protobuf",
                                            "protobuf-compiler", "mosquitto", "openssl", "bubblewrap"]}
BUILD_TOOLS = ["cmake", "ninja-build", "protobuf-compiler", "binutils", "dpkg-dev"]
# Debian's short names, in lower case, where SPDX has another one.
SPDX_LICENSES = {
    "apache": "Apache-2.0", "apache-2.0": "Apache-2.0", "bsd-2-clause": "BSD-2-Clause", "bsd-3-clause": "BSD-3-Clause",
    "bsd-3-clause~google": "BSD-3-Clause", "edl-1.0": "BSD-3-Clause", "epl-1.0": "EPL-1.0", "epl-2.0": "EPL-2.0",
    "expat": "MIT", "mit": "MIT", "gpl-2+": "GPL-2.0-or-later", "gpl-3+": "GPL-3.0-or-later",
    "lgpl-2+": "LGPL-2.0-or-later", "lgpl-2.1+": "LGPL-2.1-or-later", "mpl-2.0": "MPL-2.0",
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"}).stdout


def spdx_id(kind, name):
    """An identifier of SPDX: letters, digits, dots and hyphens. What is replaced is told apart by a digest."""
    plain = re.sub(r"[^A-Za-z0-9.-]", "-", name)
    return f"SPDXRef-{kind}-{plain}" + ("" if plain == name else "-" + hashlib.sha256(name.encode()).hexdigest()[:8])


class Licenses:
    """Licences of Debian packages, as SPDX expressions; those without a name of SPDX are told in the document."""

    def __init__(self):
        self.extracted = {}

    def declared(self, package, version, sysroot):
        """What a package's copyright file says of most of it."""
        text = pathlib.Path(f"{sysroot}/usr/share/doc/{package}/copyright").read_text("utf-8")
        found = re.search(r"^Files:\s*\*\s*\n(?:(?!\n\n)(?:.|\n))*?^License:[ \t]*(.+)$", text, re.MULTILINE)
        if not found:
            return self._reference(f"Debian-{package}", f"The licences that /usr/share/doc/{package}/copyright of the "
                                   f"Debian package {package} {version} tells.")
        words = re.split(r" +(or|and) +", found[1].strip())
        return " ".join(word.upper() if word in ("or", "and") else self._license(word, package, version)
                        for word in words)

    def _license(self, name, package, version):
        return SPDX_LICENSES.get(name.lower()) or self._reference(
            name, f"What /usr/share/doc/{package}/copyright of the Debian package {package} {version} calls {name}.")

    def _reference(self, name, text):
        reference = "LicenseRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)
        self.extracted.setdefault(reference, {"licenseId": reference, "extractedText": text, "name": name})
        return reference


def dpkg_query(sysroot):
    """The query of what is installed on this machine, or unpacked in a sysroot."""
    return ["dpkg-query", *([f"--admindir={sysroot}/var/lib/dpkg"] if sysroot else [])]


@functools.cache
def debian_field(package, field, sysroot):
    return output(*dpkg_query(sysroot), "--show", f"--showformat=${{{field}}}\n", package).splitlines()[0]


@functools.cache
def owner(path, sysroot=""):
    """The Debian package of a file, by the path that dpkg knows: with or without /usr, links followed or not."""
    for candidate in (os.path.realpath(path), os.path.realpath(path).removeprefix("/usr"), path):
        done = subprocess.run([*dpkg_query(sysroot), "--search", candidate], capture_output=True, text=True, check=False)
        if done.returncode == 0:
            return done.stdout.splitlines()[0].split(":")[0]
    raise SystemExit(f"sbom.py: no Debian package has {path}")


@functools.cache
def library_package(soname, sysroot):
    """The Debian package of a library, or of the loader."""
    triplet = "*" if sysroot else output("dpkg-architecture", "--query", "DEB_BUILD_MULTIARCH").strip()
    folders = (f"lib/{triplet}", f"usr/lib/{triplet}", "lib")
    found = [path for folder in folders for path in glob.glob(f"{sysroot}/{folder}/{soname}")]
    if not found:
        raise SystemExit(f"sbom.py: {soname}: neither ours nor of {sysroot or 'this machine'}")
    return owner(found[0], sysroot)


def needed(path):
    """Names of the libraries that a program or library of the ELF format asks for."""
    return re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]", output("readelf", "--dynamic", "--wide", str(path)))


def is_elf(path):
    with path.open("rb") as opened:
        return opened.read(4) == b"\x7fELF"


def staged_files(folder):
    """Regular files of a package, in a fixed order, without the document itself."""
    files = (path for path in folder.rglob("*") if path.is_file() and not path.is_symlink())
    return sorted(path for path in files if str(path.relative_to(folder)) != SBOM)


class Document:
    """The bill while it is written."""

    def __init__(self, version, moment, architecture, sysroot):
        self.version, self.moment, self.architecture, self.sysroot = version, moment, architecture, sysroot
        self.licenses = Licenses()
        self.packages, self.files, self.relationships = {}, [], set()

    def relate(self, element, kind, other):
        self.relationships.add((element, kind, other))

    def add_debian(self, package, sysroot=""):
        """A Debian package of this machine, or of the sysroot; returns its identifier."""
        identifier = spdx_id("Debian", package)
        if identifier not in self.packages:
            version = debian_field(package, "Version", sysroot)
            self.packages[identifier] = {
                "SPDXID": identifier, "name": package, "versionInfo": version,
                "supplier": "Organization: " + re.sub(r"\s*<.*", "", debian_field(package, "Maintainer", sysroot)),
                "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "copyrightText": "NOASSERTION",
                "licenseConcluded": "NOASSERTION", "licenseDeclared": self.licenses.declared(package, version, sysroot),
                "externalRefs": [purl("debian", package, version, debian_field(package, "Architecture", sysroot))]}
        return identifier

    def add_own(self, component, folder):
        """One of our packages with its files and what it stands on."""
        name, identifier = PACKAGES[component], spdx_id("Package", PACKAGES[component])
        listed = [self._add_file(name, folder, path) for path in staged_files(folder)]
        code = hashlib.sha1("".join(sorted(sha1 for _, sha1 in listed)).encode()).hexdigest()
        architecture = "all" if component == "bench" else self.architecture
        self.packages[identifier] = {
            "SPDXID": identifier, "name": name, "versionInfo": self.version, "supplier": OWNERS,
            "downloadLocation": "NOASSERTION", "filesAnalyzed": True, "copyrightText": "NOASSERTION",
            "packageVerificationCode": {"packageVerificationCodeValue": code} | (
                {"packageVerificationCodeExcludedFiles": ["./" + SBOM]} if component == "daemon" else {}),
            "licenseConcluded": "NOASSERTION", "licenseDeclared": "NONE",
            "externalRefs": [purl("generic", name, self.version, architecture)]}
        self.relate("SPDXRef-DOCUMENT", "DESCRIBES", identifier)
        for file_id, _ in listed:
            self.relate(identifier, "CONTAINS", file_id)
        for package in COMPILED_IN[component]:
            self.relate(identifier, "STATIC_LINK", self.add_debian(package, self.sysroot))
        for package in RUN[component]:
            self.relate(identifier, "DEPENDS_ON", self.add_debian(package))
        return identifier

    def add_libraries(self, identifier, folder, own):
        """The libraries that the programs below `folder` link, but for those named in `own`."""
        for path in filter(is_elf, staged_files(folder)):
            for soname in set(needed(path)) - own:
                package = library_package(soname, self.sysroot)
                self.relate(identifier, "DYNAMIC_LINK", self.add_debian(package, self.sysroot))

    def _add_file(self, package, folder, path):
        content = path.read_bytes()
        relative = str(path.relative_to(folder))
        sha1 = hashlib.sha1(content).hexdigest()
        identifier = spdx_id("File", f"{package}/{relative}")
        self.files.append({
            "SPDXID": identifier, "fileName": "./" + relative, "copyrightText": "NOASSERTION",
            "fileTypes": ["BINARY" if is_elf(path) else "ARCHIVE" if path.suffix == ".gz" else "TEXT"],
            "checksums": [{"algorithm": "SHA1", "checksumValue": sha1},
                          {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()}],
            "licenseConcluded": "NOASSERTION", "licenseInfoInFiles": ["NOASSERTION"]})
        return identifier, sha1

    def text(self):
        relationships = [{"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": other}
                         for element, kind, other in sorted(self.relationships)]
        body = {"packages": [self.packages[key] for key in sorted(self.packages)], "files": self.files,
                "relationships": relationships,
                "hasExtractedLicensingInfos": [self.licenses.extracted[key] for key in sorted(self.licenses.extracted)]}
        # Another name for another content, and the same for the same.
        digest = hashlib.sha256(json.dumps(body, sort_keys=True).encode()).hexdigest()
        head = {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
                "name": f"{NAME}-{self.version}",
                "documentNamespace": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, digest)}",
                "creationInfo": {"created": self.moment, "creators": ["Tool: packaging/sbom.py", OWNERS]}}
        return json.dumps(head | body, indent=1, ensure_ascii=False) + "\n"


def purl(kind, name, version, architecture):
    """A package URL."""
    quoted = version.replace("+", "%2B").replace(":", "%3A")
    path = ("deb/debian/" if kind == "debian" else "generic/") + name.replace("+", "%2B")
    return {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
            "referenceLocator": f"pkg:{path}@{quoted}?arch={architecture}"}


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition(":")[0])
    parser.add_argument("--stage", type=pathlib.Path, required=True, help="the folder with one staged folder a package")
    parser.add_argument("--version", required=True, help="of our packages")
    parser.add_argument("--architecture", required=True, help="of our packages, as Debian names it")
    parser.add_argument("--compiler", required=True, help="path of the compiler")
    parser.add_argument("--sysroot", default="", help="of a cross build: what our programs are compiled and linked against")
    parser.add_argument("--output", type=pathlib.Path, required=True)
    options = parser.parse_args()
    moment = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    document = Document(options.version, moment.strftime("%Y-%m-%dT%H:%M:%SZ"), options.architecture,
                        options.sysroot)

    own = {path.name for path in options.stage.glob(f"daemon/usr/lib/{NAME}/*.so")}
    identifiers = {component: document.add_own(component, options.stage / component) for component in PACKAGES}
    for component, identifier in identifiers.items():
        document.add_libraries(identifier, options.stage / component, own)
    document.relate(identifiers["tools"], "DEPENDS_ON", identifiers["daemon"])
    for tool in [owner(options.compiler), *BUILD_TOOLS]:
        for component in ("daemon", "tools"):
            document.relate(document.add_debian(tool), "BUILD_TOOL_OF", identifiers[component])
    options.output.parent.mkdir(parents=True, exist_ok=True)
    options.output.write_text(document.text(), "utf-8")


if __name__ == "__main__":
    main()
