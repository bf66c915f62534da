"""The bill of materials: what SPDX 2.3 demands of a document, and that it tells the truth about the packages."""

import hashlib
import json
import re
import subprocess

import pytest

IDENTIFIER = r"SPDXRef-[A-Za-z0-9.-]+"
LICENSES = {"Apache-2.0", "BSD-2-Clause", "BSD-3-Clause", "EPL-1.0", "EPL-2.0", "MIT", "GPL-2.0-or-later",
            "GPL-3.0-or-later", "LGPL-2.0-or-later", "LGPL-2.1-or-later", "MPL-2.0"}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "DYNAMIC_LINK", "STATIC_LINK", "DEPENDS_ON", "BUILD_TOOL_OF"}
SBOM = "usr/share/doc/truststore-update-client/truststore-update-client.spdx.json"


@pytest.fixture(name="text", scope="session")
def fixture_text(packages):
    return (packages["truststore-update-client"].root / SBOM).read_text()


@pytest.fixture(name="bill", scope="session")
def fixture_bill(text):
    return json.loads(text)


def test_document_has_what_is_required(bill):
    assert bill["spdxVersion"] == "SPDX-2.3"
    assert bill["dataLicense"] == "CC0-1.0"
    assert bill["SPDXID"] == "SPDXRef-DOCUMENT"
    assert bill["name"]
    assert re.fullmatch(r"[a-z]+:[^#\s]+", bill["documentNamespace"])
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bill["creationInfo"]["created"])
    assert all(re.match("(Person|Organization|Tool): .", each) for each in bill["creationInfo"]["creators"])


def test_identifiers_are_well_formed_and_unique(bill):
    found = [each["SPDXID"] for each in (bill, *bill["packages"], *bill["files"])]
    assert [each for each in found if not re.fullmatch(IDENTIFIER, each)] == []
    assert len(found) == len(set(found))


def test_relationships_are_known_and_lead_somewhere(bill):
    known = {each["SPDXID"] for each in (bill, *bill["packages"], *bill["files"])}
    for each in bill["relationships"]:
        assert {each["spdxElementId"], each["relatedSpdxElement"]} <= known
        assert each["relationshipType"] in RELATIONSHIPS


def test_each_package_has_what_is_required(bill):
    for package in bill["packages"]:
        assert package["name"] and package["versionInfo"] and package["downloadLocation"], package
        assert re.match("(Person|Organization): .", package["supplier"]), package["name"]
        assert package["filesAnalyzed"] == ("packageVerificationCode" in package), package["name"]
        assert package["copyrightText"] and package["licenseConcluded"]


def test_licences_are_names_of_spdx_or_told_in_the_document(bill):
    told = {each["licenseId"]: each["extractedText"] for each in bill["hasExtractedLicensingInfos"]}
    assert all(re.fullmatch(r"LicenseRef-[A-Za-z0-9.-]+", each) for each in told) and all(told.values())
    used = {name for package in bill["packages"] for name in re.split(" OR | AND ", package["licenseDeclared"])}
    used.discard("NONE")
    assert used <= LICENSES | set(told)
    assert set(told) <= used


def test_files_are_those_of_the_packages_with_their_digests(bill, packages):
    files = {each["SPDXID"]: each for each in bill["files"]}
    for name, package in packages.items():
        listed = {}
        for each in bill["relationships"]:
            if (each["spdxElementId"], each["relationshipType"]) == (f"SPDXRef-Package-{name}", "CONTAINS"):
                entry = files.pop(each["relatedSpdxElement"])
                listed[entry["fileName"]] = {one["algorithm"]: one["checksumValue"] for one in entry["checksums"]}
        content = {f"./{path.relative_to(package.root)}": path.read_bytes() for path in package.files()}
        content.pop("./" + SBOM, None)
        assert listed == {path: {"SHA1": hashlib.sha1(data).hexdigest(), "SHA256": hashlib.sha256(data).hexdigest()}
                          for path, data in content.items()}
    assert files == {}


def test_verification_codes_are_of_the_files(bill, packages):
    for package in bill["packages"]:
        if package["filesAnalyzed"]:
            paths = [path for path in packages[package["name"]].files() if not str(path).endswith(SBOM)]
            digests = sorted(hashlib.sha1(path.read_bytes()).hexdigest() for path in paths)
            assert package["packageVerificationCode"]["packageVerificationCodeValue"] == hashlib.sha1(
                "".join(digests).encode()).hexdigest()


def test_linked_libraries_are_those_that_the_package_depends_on(bill, packages):
    names = {each["SPDXID"]: each["name"] for each in bill["packages"]}
    for name in ("truststore-update-client", "truststore-update-client-tools"):
        linked = {names[each["relatedSpdxElement"]] for each in bill["relationships"]
                  if (each["spdxElementId"], each["relationshipType"]) == (f"SPDXRef-Package-{name}", "DYNAMIC_LINK")}
        depends = {part.split(" ")[0] for part in packages[name].field("Depends").split(", ")}
        assert linked == {each for each in depends if each.startswith("lib")}


def test_run_needs_of_the_bench_are_its_dependencies(bill, packages):
    names = {each["SPDXID"]: each["name"] for each in bill["packages"]}
    needed = {names[each["relatedSpdxElement"]] for each in bill["relationships"]
              if (each["spdxElementId"], each["relationshipType"]) == (
                  "SPDXRef-Package-truststore-update-client-bench", "DEPENDS_ON")}
    depends = packages["truststore-update-client-bench"].field("Depends").split(", ")
    assert needed == {part.split(" ")[0] for part in depends}


def test_versions_are_those_of_this_machine(bill):
    for package in bill["packages"]:
        if package["SPDXID"].startswith("SPDXRef-Debian-"):
            command = ["dpkg-query", "--show", "--showformat=${Version}\n", package["name"]]
            assert package["versionInfo"] in subprocess.run(command, check=True, capture_output=True,
                                                            text=True).stdout.splitlines()


def test_compiler_and_generator_are_told(bill):
    names = {each["SPDXID"]: each["name"] for each in bill["packages"]}
    tools = {names[each["spdxElementId"]] for each in bill["relationships"]
             if each["relationshipType"] == "BUILD_TOOL_OF"}
    assert {"cmake", "protobuf-compiler"} < tools and any(re.match(r"g\+\+", name) for name in tools)


def test_document_beside_the_packages_is_the_same(build_dir, text):
    assert (build_dir / "packages" / "truststore-update-client.spdx.json").read_text() == text


def test_a_licence_that_spdx_names_has_that_name(bill):
    declared = {package["name"]: package["licenseDeclared"] for package in bill["packages"]}
    assert (declared["libdlt2"], declared["bubblewrap"]) == ("MPL-2.0", "LGPL-2.0-or-later")
