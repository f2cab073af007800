#!/usr/bin/env python3
"""Reads off an unpacked bundle whether it is what it should be: packaging/inspect.py BUNDLE ARCHITECTURE

Looks at every program and library for what it needs of the host, and at the list of what is carried.
"""

import json
import pathlib
import re
import subprocess
import sys

# The newest versions of the C and C++ runtimes that anything in the bundle may need.
FLOORS = {"GLIBC": (2, 34), "GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (7, 0, 0)}
MACHINES = {"amd64": "Advanced Micro Devices X86-64", "arm64": "AArch64"}
# What SPDX 2.3 demands of a document, of its creation and of each package.
DOCUMENT_FIELDS = {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"}
PACKAGE_FIELDS = {"SPDXID", "name", "downloadLocation", "versionInfo", "supplier", "licenseConcluded",
                  "licenseDeclared", "copyrightText"}
LICENCE = re.compile(r"NOASSERTION|[A-Za-z0-9.+-]+( (AND|OR|WITH) [A-Za-z0-9.+-]+)*")

complaints = []


def expect(holds, complaint):
    if not holds:
        complaints.append(complaint)


def check_file(path, machine, is_program):
    facts = subprocess.run(["readelf", "--wide", "--file-header", "--section-headers", "--dynamic", "--version-info", path],
                           check=True, stdout=subprocess.PIPE, text=True, env={"LC_ALL": "C", "PATH": "/usr/bin"}).stdout
    expect(f"Machine:                           {machine}\n" in facts, f"{path} is not for {machine}")
    expect(" .symtab " not in facts and " .debug_info " not in facts, f"{path} is not stripped")
    needs = facts[facts.find("Version needs section"):]
    for kind, version in re.findall(r"Name: ([A-Z]+)_([0-9.]+)\b", needs):
        if kind in FLOORS:
            expect(tuple(map(int, version.split("."))) <= FLOORS[kind], f"{path} needs {kind}_{version}")
    expect("(RUNPATH)" not in facts, f"{path} has a RUNPATH, which goes behind LD_LIBRARY_PATH")
    paths = re.findall(r"\(RPATH\).*\[(.*)\]", facts)
    expect(is_program == bool(paths), f"{path} has the search path {paths}")
    expect(not is_program or paths[0].startswith("$ORIGIN/lib:/usr/lib/"), f"{path} has the search path {paths}")
    return re.findall(r"\(NEEDED\).*\[(.*)\]", facts)


def check_list(bundle, architecture, libraries):
    document = json.loads((bundle / "kestrel.spdx.json").read_text(encoding="utf-8"))
    expect(DOCUMENT_FIELDS <= document.keys(), "the list lacks fields of a document")
    expect(document["spdxVersion"] == "SPDX-2.3" and document["dataLicense"] == "CC0-1.0"
           and document["SPDXID"] == "SPDXRef-DOCUMENT", "the list is not in SPDX 2.3")
    expect(re.fullmatch(r"https://[^#]+", document["documentNamespace"]), "the list's namespace is no address")
    creation = document["creationInfo"]
    expect(re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", creation["created"]), "the list's time is none")
    expect(creation["creators"] and all(re.match(r"(Tool|Organization|Person): .", creator)
                                        for creator in creation["creators"]), "the list's creators are none")
    identifiers = {"SPDXRef-DOCUMENT"}
    listed = []
    for package in document["packages"]:
        name = package.get("name")
        expect(PACKAGE_FIELDS <= package.keys(), f"{name} lacks fields of a package in the list")
        expect(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", package["SPDXID"]), f"{name} has no proper identifier")
        expect(package["SPDXID"] not in identifiers, f"{name} is listed twice")
        expect(LICENCE.fullmatch(package["licenseDeclared"]), f"{name}: {package['licenseDeclared']}")
        identifiers.add(package["SPDXID"])
        licence = bundle / "licences" / f"{name}.txt"
        expect(licence.is_file() and licence.stat().st_size > 500, f"{name} has no licence text")
        if name == "kestrel":
            continue
        listed += re.findall(r"lib/([^ ,]+)", package["comment"])
        expect(re.fullmatch(rf"pkg:deb/debian/{re.escape(name).replace('[+]', '%2B')}@[^ ?:+]+[?]arch={architecture}&distro=debian-12&upstream=[^ &]+",
                            package["externalRefs"][0]["referenceLocator"]), f"{name} has no proper purl")
    expect(sorted(listed) == sorted(libraries), f"listed and carried differ: {set(listed) ^ set(libraries)}")
    contained = {relationship["relatedSpdxElement"] for relationship in document["relationships"]}
    expect(contained | {"SPDXRef-DOCUMENT"} == identifiers, "relationships and packages differ")


def main():
    bundle, architecture = pathlib.Path(sys.argv[1]), sys.argv[2]
    libraries = {path.name for path in (bundle / "lib").iterdir()}
    expect({path.name for path in bundle.iterdir()} == {"kestrel", "lib", "locale", "licences", "kestrel.spdx.json"},
           "the bundle holds something else")
    needed = set(check_file(bundle / "kestrel", MACHINES[architecture], True))
    for library in sorted(libraries):
        needed.update(check_file(bundle / "lib" / library, MACHINES[architecture], False))
    expect(libraries <= needed, f"nothing needs {libraries - needed}")
    check_list(bundle, architecture, libraries)
    for complaint in complaints:
        print(complaint, file=sys.stderr)
    print(f"{len(libraries)} libraries; needed of the host: {' '.join(sorted(needed - libraries))}")
    return 1 if complaints else 0


sys.exit(main())
