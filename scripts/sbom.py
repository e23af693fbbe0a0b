#!/usr/bin/env python3
"""Writes an SPDX 2.3 document (JSON) of what the binaries of our packages are linked with.

usage: sbom.py PACKAGE.deb... > sbom.spdx.json

What is loaded when a program starts is asked of its ELF file, and which Debian package that comes from, with version and
licences, of this machine, where the packages were built. Headers and static libraries leave no such trace: they are named
below, and their versions asked likewise.
"""
import datetime
import hashlib
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

# Compiled in, and what has it.
COMPILED_IN = {
    "libcli11-dev": ["veldan"],
    "libsqlitecpp-dev": ["veldan", "python3-veldan"],
    "nlohmann-json3-dev": ["veldan", "python3-veldan"],
    "pybind11-dev": ["python3-veldan"],
}
# Names in copyright files that SPDX writes otherwise; what is not a name of SPDX becomes NOASSERTION.
LICENCES = {
    "Apache-2.0 AND BSD-3-Clause": "Apache-2.0 AND BSD-3-Clause", "Apache-2.0": "Apache-2.0",
    "Apache-2": "Apache-2.0", "BSD-2-clause": "BSD-2-Clause", "BSD-3-clause": "BSD-3-Clause",
    "BSD-3-Clause": "BSD-3-Clause", "Expat": "MIT", "GPL-2+": "GPL-2.0-or-later", "GPL-3+": "GPL-3.0-or-later",
    "LGPL-2+": "LGPL-2.0-or-later", "LGPL-2.1": "LGPL-2.1-only", "LGPL-2.1+": "LGPL-2.1-or-later",
    "LGPL-3+": "LGPL-3.0-or-later", "MIT": "MIT", "Zlib": "Zlib", "zlib": "Zlib",
}


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout


def needed(binary):
    return re.findall(r"NEEDED +(\S+)", output("objdump", "-p", binary))


def package_of(library):
    """The Debian package that holds a library of this name, None for one of ours."""
    for line in output("/sbin/ldconfig", "-p").splitlines():
        if line.split()[0] == library:
            path = line.split("=> ")[1]
            for place in (path, os.path.realpath(path), "/usr" + path):
                found = output("dpkg-query", "-S", place)
                if found:
                    return found.split(":")[0]
    return None


def licences(package):
    """The licence of "Files: *" where a copyright file can be read by machines."""
    path = Path("/usr/share/doc", package, "copyright")
    text = path.read_text(errors="replace") if path.exists() else ""
    found = re.search(r"^Files: *\*[^\n]*\n(?:.+\n)*?License: *(\S[^\n]*)", text, re.MULTILINE)
    return LICENCES.get(found[1].strip(), "NOASSERTION") if found else "NOASSERTION"


def entry(name, version, licence, **more):
    return {"SPDXID": "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name), "name": name, "versionInfo": version,
            "licenseConcluded": "NOASSERTION", "licenseDeclared": licence, "copyrightText": "NOASSERTION",
            "downloadLocation": "NOASSERTION", "filesAnalyzed": False, **more}


def main():
    ours, others, relations = [], {}, []
    for package in sys.argv[1:]:
        name, version = output("dpkg-deb", "-f", package, "Package", "Version").split()[1::2]
        digest = hashlib.sha256(Path(package).read_bytes()).hexdigest()
        ours.append(entry(name, version, "Apache-2.0", checksums=[{"algorithm": "SHA256", "checksumValue": digest}]))
        relations.append(("SPDXRef-DOCUMENT", "DESCRIBES", ours[-1]["SPDXID"]))
        linked = {}
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["dpkg-deb", "-x", package, folder], check=True)
            for binary in sorted(Path(folder).rglob("*")):
                if binary.is_file() and not binary.is_symlink() and binary.read_bytes()[:4] == b"\x7fELF":
                    linked.update({package_of(library): "DYNAMIC_LINK" for library in needed(binary)})
        linked.update({other: "STATIC_LINK" for other, users in COMPILED_IN.items() if name in users})
        for other, how in sorted((other, how) for other, how in linked.items() if other):
            version = output("dpkg-query", "-W", "-f", "${Version}", other)
            others[other] = entry(other, version, licences(other), externalRefs=[{
                "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                "referenceLocator": f"pkg:deb/debian/{other}@{version}?distro=bookworm"}])
            relations.append((ours[-1]["SPDXID"], how, others[other]["SPDXID"]))
    made = datetime.datetime.fromtimestamp(int(os.environ.get("SOURCE_DATE_EPOCH", datetime.datetime.now().timestamp())),
                                           datetime.timezone.utc)
    version = ours[0]["versionInfo"]
    digests = "".join(package["checksums"][0]["checksumValue"] for package in ours)
    json.dump({
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": f"veldan-{version}",
        "documentNamespace": f"urn:veldan:sbom:{version}:{hashlib.sha256(digests.encode()).hexdigest()}",
        "creationInfo": {"created": made.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: veldan-sbom"]},
        "packages": ours + [others[name] for name in sorted(others)],
        "relationships": [{"spdxElementId": a, "relationshipType": how, "relatedSpdxElement": b} for a, how, b in relations],
    }, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()
