"""Describes the npm packages that are compiled in, as a CycloneDX 1.5 document.

describe_packages.py LOCK MODULES OUTPUT

LOCK is package-lock.json, MODULES the folder with the installed packages. The document carries
each package's licence text, which the program shows, and the hash that the lock file pins.
"""

import base64
import json
import pathlib
import sys


def component(name, entry, folder):
    """One package as a CycloneDX component."""
    texts = sorted(path for path in folder.iterdir() if path.name.upper().startswith("LICENSE"))
    if not texts:
        raise SystemExit(f"{name} has no licence text")
    algorithm, digest = entry["integrity"].split("-", 1)
    text = "\n\n".join(path.read_text(encoding="utf-8").strip() for path in texts)
    return {
        "type": "library",
        "bom-ref": f"npm:{name}@{entry['version']}",
        "name": name,
        "version": entry["version"],
        "purl": f"pkg:npm/{name.replace('@', '%40', 1)}@{entry['version']}",
        "scope": "required",
        "hashes": [{"alg": {"sha512": "SHA-512", "sha256": "SHA-256"}[algorithm],
                    "content": base64.b64decode(digest).hex()}],
        # An expression stands for all texts; the other form holds one licence with its text.
        "licenses": [{"license": {
            "name": entry["license"].strip("()"),
            "text": {"contentType": "text/plain", "content": text + "\n"}}}],
    }


def main():
    """Writes the document."""
    lock, modules, output = (pathlib.Path(argument) for argument in sys.argv[1:])
    packages = json.loads(lock.read_text(encoding="utf-8"))["packages"]
    components = [component(name, packages[f"node_modules/{name}"], modules / name)
                  for name in sorted(packages[""]["dependencies"])]
    document = {"bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
                "components": components}
    output.write_text(json.dumps(document, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
