"""Writes the software bill of materials of a build as a CycloneDX 1.5 document.

make_sbom.py --version VERSION --bundled BUNDLED [--headers PACKAGE]... --output OUTPUT PROGRAM...

BUNDLED describes the compiled-in npm packages. To it come the shared libraries that the programs
name, with the Debian packages that hold them, and the packages whose headers are compiled in.
Libraries of other systems are listed by name alone.
"""

import argparse
import json
import pathlib
import platform
import re
import shutil
import subprocess
import uuid


def output_of(*command):
    """Standard output of a command."""
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def linked_libraries(program):
    """The libraries that a program names itself: {name: path or None}."""
    if platform.system() == "Darwin":
        lines = output_of("otool", "-L", program).splitlines()[1:]
        paths = [line.split(" (")[0].strip() for line in lines]
        return {pathlib.Path(path).name: None for path in paths}
    names = re.findall(r"\(NEEDED\).*\[(.+)\]", output_of("readelf", "--dynamic", program))
    paths = re.findall(r"(/\S+) \(0x", output_of("ldd", program))
    found = {pathlib.Path(path).name: path for path in paths}
    return {name: found.get(name) for name in names}


def package_facts(packages):
    """{package: (name, version, source)} of installed Debian packages."""
    if not packages:
        return {}
    facts = output_of("dpkg-query", "-W", "-f=${binary:Package}\t${Version}\t${source:Package}\n",
                      *packages)
    known = {}
    for line in facts.splitlines():
        package, version, source = line.split("\t")
        name = package.split(":")[0]
        known[package] = known[name] = (name, version, source)
    return known


def owners_of(paths):
    """{path: facts} of files; those of no Debian package are left out."""
    if not shutil.which("dpkg-query") or not paths:
        return {}
    # With merged /usr a package may name the same file under either folder.
    names = {name: path for path in paths
             for name in (path, path.removeprefix("/usr"), "/usr" + path,
                          str(pathlib.Path(path).resolve()))}
    # Fails when one of the names is unknown, which is usual here.
    found = subprocess.run(["dpkg-query", "--search", *names], check=False,
                           capture_output=True, text=True).stdout
    owners = {}
    for line in found.splitlines():
        package, name = line.rsplit(": ", 1)
        owners[names[name]] = package.split(",")[0]
    facts = package_facts(sorted(set(owners.values())))
    return {path: facts[owner] for path, owner in owners.items()}


def described_package(facts):
    """A component without what is used of it."""
    name, version, source = facts
    return {"type": "library", "bom-ref": f"deb:{name}@{version}", "name": name,
            "version": version, "scope": "required", "purl": f"pkg:deb/debian/{name}@{version}",
            "supplier": {"name": f"Debian source package {source}"}, "properties": []}


def library_components(programs):
    """A component for each package, or each library without one, and what each program uses."""
    libraries = {program: linked_libraries(program) for program in programs}
    packages = owners_of(sorted(
        {path for found in libraries.values() for path in found.values() if path}))
    components, uses = {}, {}
    for program, found in libraries.items():
        used = set()
        for name, path in found.items():
            part = described_package(packages[path]) if path in packages else {
                "type": "library", "bom-ref": f"library:{name}", "name": name,
                "scope": "required", "properties": []}
            part = components.setdefault(part["bom-ref"], part)
            used.add(part["bom-ref"])
            entry = {"name": "quellora:library", "value": name}
            if entry not in part["properties"]:
                part["properties"].append(entry)
        uses[program] = sorted(used)
    return [components[reference] for reference in sorted(components)], uses


def main():
    """Writes the document."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--version", required=True)
    parser.add_argument("--bundled", required=True, type=pathlib.Path)
    parser.add_argument("--output", required=True, type=pathlib.Path)
    parser.add_argument("--headers", action="append", default=[])
    parser.add_argument("programs", nargs="+")
    given = parser.parse_args()
    document = json.loads(given.bundled.read_text(encoding="utf-8"))
    bundled = document["components"]
    libraries, uses = library_components(given.programs)
    headers = package_facts(given.headers) if shutil.which("dpkg-query") else {}
    compiled = [described_package(headers[name]) for name in given.headers if name in headers]
    programs = [{"type": "application", "bom-ref": f"program:{pathlib.Path(path).name}",
                 "name": pathlib.Path(path).name, "version": given.version}
                for path in given.programs]
    document["metadata"] = {"component": {
        "type": "application", "bom-ref": "quellora", "name": "Quellora",
        "version": given.version, "licenses": [{"license": {"id": "MIT"}}]}}
    document["components"] = programs + bundled + compiled + libraries
    inside = [part["bom-ref"] for part in bundled]
    document["dependencies"] = [
        {"ref": "quellora", "dependsOn": [part["bom-ref"] for part in programs + compiled]}] + [
        {"ref": f"program:{pathlib.Path(path).name}",
         "dependsOn": uses[path] + (inside if pathlib.Path(path).name == "quellora" else [])}
        for path in given.programs]
    # Of the content, so that the same build gives the same document.
    text = json.dumps(document, indent=1, ensure_ascii=False)
    document["serialNumber"] = f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, text)}"
    given.output.write_text(json.dumps(document, indent=1, ensure_ascii=False) + "\n",
                            encoding="utf-8")


if __name__ == "__main__":
    main()
