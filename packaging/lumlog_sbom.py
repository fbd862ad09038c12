"""The bill of materials: SPDX 2.3 as JSON, with every file of the package and what is linked in."""
import datetime
import hashlib
import json
import uuid

NAMESPACE = uuid.UUID("6a4b3c2e-5a0b-5d1f-9a55-0f7d3f1b7c11")
PUBLIC_DOMAIN = {
    "licenseId": "LicenseRef-public-domain",
    "extractedText": "Parts of the MinGW-w64 runtime are in the public domain; its copyright file says which.",
    "name": "public domain",
}


def identifier(text):
    return "".join(c if c.isalnum() else "-" for c in text)


def kinds_of(name):
    if name.endswith((".dll", ".exe", ".lib", ".a", ".jar")):
        return ["BINARY"]
    if name.endswith((".h", ".hpp", ".java", ".py", ".cmake")):
        return ["SOURCE"]
    if name.endswith(".png"):
        return ["IMAGE"]
    return ["TEXT" if name.endswith((".md", ".txt")) else "OTHER"]


def files_of(folder):
    files = []
    for path in sorted(folder.rglob("*"), key=lambda path: path.relative_to(folder).as_posix()):
        if path.is_file():
            name = path.relative_to(folder).as_posix()
            data = path.read_bytes()
            files.append({
                "SPDXID": f"SPDXRef-File-{hashlib.sha1(name.encode()).hexdigest()[:16]}",
                "fileName": f"./{name}",
                "fileTypes": kinds_of(name),
                "checksums": [
                    {"algorithm": "SHA1", "checksumValue": hashlib.sha1(data).hexdigest()},
                    {"algorithm": "SHA256", "checksumValue": hashlib.sha256(data).hexdigest()},
                ],
                "licenseConcluded": "NOASSERTION",
                "copyrightText": "NOASSERTION",
            })
    return files


def own_package(version, files):
    sums = sorted(file["checksums"][0]["checksumValue"] for file in files)
    return {
        "SPDXID": "SPDXRef-LUMlog",
        "name": "LUMlog",
        "versionInfo": version,
        "supplier": "NOASSERTION",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": True,
        "packageVerificationCode": {
            "packageVerificationCodeValue": hashlib.sha1("".join(sums).encode()).hexdigest(),
            "packageVerificationCodeExcludedFiles": ["./share/doc/lumlog/lumlog.spdx.json"],
        },
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION",
        "primaryPackagePurpose": "LIBRARY",
    }


def part(component):
    return {
        "SPDXID": f"SPDXRef-{identifier(component['name'])}",
        "name": component["name"],
        "versionInfo": component["version"],
        "supplier": "NOASSERTION",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": component["license"],
        "licenseDeclared": component["license"],
        "copyrightText": "NOASSERTION",
        "primaryPackagePurpose": "LIBRARY",
    }


def bill(folder, version, components, epoch):
    files = files_of(folder)
    parts = [part(component) for component in components]
    own = own_package(version, files)
    content = own["packageVerificationCode"]["packageVerificationCodeValue"]
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", own["SPDXID"])]
    relations += [(own["SPDXID"], "STATIC_LINK", each["SPDXID"]) for each in parts]
    relations += [(own["SPDXID"], "CONTAINS", each["SPDXID"]) for each in files]
    document = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"LUMlog-{version}",
        "documentNamespace": f"urn:uuid:{uuid.uuid5(NAMESPACE, content)}",
        "creationInfo": {
            "created": datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": [f"Tool: LUMlog-packaging-{version}"],
        },
        "hasExtractedLicensingInfos": [PUBLIC_DOMAIN],
        "packages": [own, *parts],
        "files": files,
        "relationships": [
            {"spdxElementId": a, "relationshipType": kind, "relatedSpdxElement": b} for a, kind, b in relations
        ],
    }
    return json.dumps(document, indent=1, ensure_ascii=False) + "\n"
