#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""reference_test.py: makes the reference of the public headers, and checks that doxygen has no
warning and that every public name in it is described. Doxygen itself keeps quiet about some:
enumerators, constructors, and what is outside of classes."""

import os
import pathlib
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent
# What a header of ours must show there; proof that the headers are read at all.
EXPECTED = {"IoMapping::readValue", "Server::run", "getTypeName", "endProcess", "RegisterType::RELAY",
            "GpioDriver::GpioDriver", "tesk::ParseException", "InfoIo::relays",
            "BusContract::SERVICE_NAME", "getAllTypes", "ServiceError::getCause"}


def described(element):
    return any("".join(text.itertext()).strip()
               for kind in ("briefdescription", "detaileddescription")
               for text in element.findall(kind))


def names_in(compound):
    """Pairs of each public name and whether it is described."""
    scope = "" if compound.get("kind") == "file" else compound.findtext("compoundname") + "::"
    for member in compound.iter("memberdef"):
        name = scope + member.findtext("name")
        deleted = (member.findtext("argsstring") or "").endswith("=delete")
        if member.get("prot") == "private" or "~" in name or deleted:
            continue
        yield name, described(member) or member.find("reimplements") is not None
        for value in member.findall("enumvalue"):
            yield f"{name}::{value.findtext('name')}", described(value)


def reference(directory):
    environment = {**os.environ, "IO_MAPPING_VERSION": "test", "IO_MAPPING_REFERENCE": directory}
    subprocess.run(["doxygen", "docs/Doxyfile"], cwd=ROOT, env=environment, check=True)
    for file in pathlib.Path(directory, "xml").glob("*.xml"):
        for compound in ElementTree.parse(file).getroot().iter("compounddef"):
            if compound.get("kind") in ("class", "struct"):
                yield compound.findtext("compoundname"), described(compound)
            if compound.get("kind") in ("class", "struct", "file", "namespace"):
                yield from names_in(compound)


def main():
    with tempfile.TemporaryDirectory() as directory:
        names = dict(reference(directory))
    bare = sorted(name for name, is_described in names.items() if not is_described)
    missing = EXPECTED - names.keys()
    if bare or missing:
        sys.exit(f"reference_test: not described: {bare}; not in the reference: {sorted(missing)}")
    print(f"reference_test: {len(names)} public names, all described")


main()
