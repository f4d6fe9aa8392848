#!/usr/bin/env python3
"""Refuses a public operation that asks a service and has no wire table.

usage: operations_have_rows.py TEST_PROGRAM... -- HEADER...

The operations are what the headers declare for others to call. The table of Class::operation is the
suite that some of the test programs instantiate as Class_operation (of a free function: operation)
over Wire_Table; it must have rows. Prints what is missing, and what below is no longer true.
"""

import re
import subprocess
import sys

# What asks no service, so that nothing can go out or come.
ASKS_NOBODY = {
    "Catalog_Agent::generate",
    "Catalog_Agent::parse",
    "NFS_Operator::reset",
    "SCSI_Target_Manager::generate_target_name",
    "SCSI_Target_Manager::get_scsi_pool_portal",
    "SCSI_Target_Manager::init",
    "SCSI_Target_Manager::type_to_name",
    "adjust_device_url_by_backupd_device",
    "get_storage_role",
    "host_uuid_in_storage",
    "is_cd_modules",
    "parse_http_uri",
    "parse_lanfree_uri",
    "parse_pool_info",
}

# A name that stands for several operations has a table for each of them.
OVERLOADS = {
    "SCSI_Target_Manager::create_lun": ("from_size", "from_snapshot"),
    "get_pool_info": ("from_client", "from_host", "from_upstream"),
}

FUNCTION = re.compile(r"(\w+)\s*\([^()]*\)(?:\s*const)?\s*;")


def without_comments(text):
    return re.sub(r"//[^\n]*", "", text)


def without_nested(body):
    """A class's body without what stands in braces inside it."""
    before = None
    while before != body:
        before, body = body, re.sub(r"\{[^{}]*\}", ";", body)
    return body


def class_body(text, start):
    depth = 0
    for end in range(start, len(text)):
        depth += {"{": 1, "}": -1}.get(text[end], 0)
        if depth == 0:
            return text[start + 1:end]
    raise ValueError("a class without an end")


def operations_in(text):
    """Names of the public operations that a header declares, an overloaded one several times."""
    text = without_comments(text)
    for found in re.finditer(r"\b(class|struct) ZQPOOL_EXPORT (\w+) \{", text):
        kind, name = found.groups()
        body = without_nested(class_body(text, found.end() - 1))
        access = "public" if kind == "struct" else "private"
        for part in re.split(r"\b((?:public|protected|private):)", body):
            if part.endswith(":"):
                access = part[:-1]
            elif access == "public":
                yield from (f"{name}::{function}" for function in FUNCTION.findall(part)
                            if function != name)
    for declaration in re.findall(r"^ZQPOOL_EXPORT [^;]*;", text, re.M):
        yield from FUNCTION.findall(declaration)


def tables_of(program):
    """Names of the wire tables of a test program that have rows."""
    lines = subprocess.run([program, "--gtest_list_tests"], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    suite = ""
    for line in lines:
        if not line.startswith(" "):
            suite = line.split(".")[0]
        elif suite.endswith("/Wire_Table"):
            yield suite.split("/")[0]


def main():
    split = sys.argv.index("--")
    programs, headers = sys.argv[1:split], sys.argv[split + 1:]
    tables = {table for program in programs for table in tables_of(program)}
    declared = []
    for path in headers:
        with open(path, encoding="utf-8") as header:
            declared += operations_in(header.read())

    wanted = set()
    complaints = [f"declared nowhere: {name}"
                  for name in sorted((ASKS_NOBODY | OVERLOADS.keys()) - set(declared))]
    for name in sorted(set(declared) - ASKS_NOBODY):
        variants = OVERLOADS.get(name, ("",))
        if declared.count(name) != len(variants):
            complaints.append(f"{declared.count(name)} overloads, {len(variants)} known: {name}")
        wanted |= {"_".join(filter(None, (name.replace("::", "_"), variant)))
                   for variant in variants}
    complaints += [f"no wire table: {table}" for table in sorted(wanted - tables)]
    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(f"{len(declared)} operations, {len(wanted)} tables wanted, {len(complaints)} complaints")
    return 1 if complaints or not wanted else 0


if __name__ == "__main__":
    sys.exit(main())
