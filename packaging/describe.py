#!/usr/bin/env python3
"""Describes the libraries in a bundle: packaging/describe.py BUNDLE VERSION ARCHITECTURE ORIGINS

ORIGINS is a file with the path that each library was copied from. dpkg knows the package of each. This
writes into the bundle: a copyright text for each package, in licences/, and the list of the packages in
SPDX 2.3, kestrel.spdx.json. SOURCE_DATE_EPOCH becomes the time of the list.
"""

import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import urllib.parse

# The short names of licences that Debian uses, and those of SPDX.
SPDX_NAMES = {
    "Apache-2.0": "Apache-2.0", "BSD-2-clause": "BSD-2-Clause", "BSD-3-clause": "BSD-3-Clause",
    "BSD-4-clause": "BSD-4-Clause", "Expat": "MIT", "MIT": "MIT", "ISC": "ISC", "Zlib": "Zlib",
    "zlib": "Zlib", "curl": "curl", "GPL-2": "GPL-2.0-only", "GPL-2+": "GPL-2.0-or-later",
    "GPL-3": "GPL-3.0-only", "GPL-3+": "GPL-3.0-or-later", "LGPL-2": "LGPL-2.0-only",
    "LGPL-2+": "LGPL-2.0-or-later", "LGPL-2.1": "LGPL-2.1-only", "LGPL-2.1+": "LGPL-2.1-or-later",
    "LGPL-3": "LGPL-3.0-only", "LGPL-3+": "LGPL-3.0-or-later", "OpenLDAP-2.8": "OLDAP-2.8",
    "BSD3": "BSD-3-Clause", "Hylafax": "libtiff",
    "wxWindows": "LGPL-2.0-or-later WITH WxWindows-exception-3.1",
}
LIBRARY_FIELDS = "${Package}\n${Version}\n${source:Package}\n${source:Version}\n${Maintainer}"


def ask_dpkg(*arguments):
    return subprocess.run(["dpkg-query", *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


def package_of(library):
    """Returns the name and architecture of the package that the file belongs to."""
    # dpkg knows a file by its path in the package, which may or may not start with /usr.
    path = os.path.realpath(library).removeprefix("/usr")
    for known in ("/usr" + path, path):
        try:
            return ask_dpkg("-S", known).split(": ")[0]
        except subprocess.CalledProcessError:
            continue
    sys.exit(f"No package contains {library}")


def declared_licence(copyright_text):
    """Returns the licence that a machine-readable copyright gives for most files, as an SPDX expression."""
    if not copyright_text.startswith("Format:"):
        return "NOASSERTION"
    for paragraph in re.split(r"\n\s*\n", copyright_text):
        if re.search(r"^Files:\s*\*\s*$", paragraph, re.MULTILINE):
            words = re.search(r"^License:(.*)$", paragraph, re.MULTILINE)[1].split()
            if not words:
                return "NOASSERTION"
            # Some packages have tools under the GPL and a library under the LGPL; the licence of most files
            # would mislead.
            if words[0].startswith("GPL") and "LGPL" in copyright_text:
                return "NOASSERTION"
            expression = [word.upper() if word in ("and", "or") else SPDX_NAMES.get(word) for word in words]
            return "NOASSERTION" if None in expression else " ".join(expression)
    return "NOASSERTION"


def main():
    bundle, version, architecture, origins = sys.argv[1:]
    bundle = pathlib.Path(bundle)
    licences = bundle / "licences"

    def keep_licence(name, text):
        (licences / name).write_text(text, encoding="utf-8")
        # On Debian, a copyright text may refer to the common licences; other systems lack these files.
        for common in re.findall(r"/usr/share/common-licenses/([A-Za-z0-9.-]*[A-Za-z0-9])", text):
            source = pathlib.Path("/usr/share/common-licenses", common)
            if source.is_file():
                (licences / f"{common}.txt").write_bytes(source.read_bytes())

    carried = {}
    for library in pathlib.Path(origins).read_text(encoding="utf-8").split():
        carried.setdefault(package_of(library), []).append(f"lib/{os.path.basename(library)}")

    release = dict(line.split("=", 1) for line in pathlib.Path("/etc/os-release").read_text().split("\n") if line)
    distribution = f"{release['ID']}-{release['VERSION_ID']}".replace('"', "")
    packages = [{
        "SPDXID": "SPDXRef-Package-kestrel", "name": "kestrel", "versionInfo": version,
        "supplier": "Organization: The Kestrel developers", "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False, "licenseConcluded": "NOASSERTION", "licenseDeclared": "MIT",
        "copyrightText": "Copyright (c) 2026 The Kestrel developers",
    }]
    for package in sorted(carried):
        name, package_version, source, source_version, maintainer = ask_dpkg(
            "-W", "-f", LIBRARY_FIELDS, package).split("\n")
        copyright_text = pathlib.Path(f"/usr/share/doc/{name}/copyright").read_text(encoding="utf-8")
        keep_licence(f"{name}.txt", copyright_text)
        quoted_version = urllib.parse.quote(package_version, safe="~")
        upstream = urllib.parse.quote(f"{source}@{source_version}", safe="~")
        packages.append({
            "SPDXID": f"SPDXRef-Package-{re.sub('[^A-Za-z0-9.-]', '-', name)}", "name": name,
            "versionInfo": package_version, "supplier": f"Organization: {maintainer}",
            "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
            "sourceInfo": f"Debian source package {source} {source_version}",
            "licenseConcluded": "NOASSERTION", "licenseDeclared": declared_licence(copyright_text),
            "licenseComments": f"Declared for most files of the source package; "
                               f"licences/{name}.txt has all licences.",
            "copyrightText": "NOASSERTION", "comment": "As " + ", ".join(sorted(carried[package])),
            "externalRefs": [{
                "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                "referenceLocator": f"pkg:deb/debian/{urllib.parse.quote(name)}@{quoted_version}"
                                    f"?arch={architecture}&distro={distribution}&upstream={upstream}",
            }],
        })

    digest = hashlib.sha256(json.dumps(packages).encode()).hexdigest()
    made = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    title = f"kestrel-{version}-linux-{architecture}"
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": title,
        "documentNamespace": f"https://spdx.org/spdxdocs/{title}-{digest}",
        "creationInfo": {"created": made.strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": ["Tool: make-bundle", "Organization: The Kestrel developers"]},
        "packages": packages,
        "relationships": [
            {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
             "relatedSpdxElement": packages[0]["SPDXID"]},
            *({"spdxElementId": packages[0]["SPDXID"], "relationshipType": "CONTAINS",
               "relatedSpdxElement": package["SPDXID"]} for package in packages[1:])],
    }
    (bundle / "kestrel.spdx.json").write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")


main()
