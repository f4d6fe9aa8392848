#!/usr/bin/env python3
"""Refuses a public operation that asks a service and has no wire table.

usage: operations_have_rows.py LIBRARY TEST_PROGRAM...

The operations are the functions that the library exports. The table of Class::operation is the suite
that some of the test programs instantiate as Class_operation (of a free function: operation) over
Wire_Table; it must have rows. Prints what is missing, and what below is no longer true.
"""

import re
import subprocess
import sys

# Operations that send no request.
SENDS_NOTHING = {
    "Catalog_Agent::generate",
    "Catalog_Agent::parse",
    "NFS_Operator::reset",
    "Pool_Info::operator<<",
    "Pool_Info::operator>>",
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
    "string_sprintf",
    "string_sprintf_append",
    "string_vsprintf",
}

# A name that stands for several operations has a table for each of them.
OVERLOADS = {
    "SCSI_Target_Manager::create_lun": ("from_size", "from_snapshot"),
    "get_pool_info": ("from_client", "from_host", "from_upstream"),
}


def operations_of(library):
    """Names of the functions that a library exports, an overloaded one several times."""
    lines = subprocess.run(["nm", "-DC", "--defined-only", library], check=True,
                           capture_output=True, text=True).stdout.splitlines()
    for line in lines:
        _, kind, symbol = line.split(" ", 2)
        name = re.split(r"[(\[]", symbol)[0]
        scopes = name.split("::")
        constructor = len(scopes) > 1 and scopes[-1].lstrip("~") == scopes[-2]
        if kind == "T" and not constructor and not name.startswith("zqpool::detail::"):
            yield name


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
    library, *programs = sys.argv[1:]
    exported = list(operations_of(library))
    tables = {table for program in programs for table in tables_of(program)}

    wanted = set()
    complaints = [f"exported no more: {name}"
                  for name in sorted((SENDS_NOTHING | OVERLOADS.keys()) - set(exported))]
    for name in sorted(set(exported) - SENDS_NOTHING):
        variants = OVERLOADS.get(name, ("",))
        if exported.count(name) != len(variants):
            complaints.append(f"{exported.count(name)} overloads, {len(variants)} known: {name}")
        wanted |= {"_".join(filter(None, (name.replace("::", "_"), variant)))
                   for variant in variants}
    complaints += [f"no wire table: {table}" for table in sorted(wanted - tables)]
    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(f"{len(exported)} operations, {len(wanted)} tables wanted, {len(complaints)} complaints")
    return 1 if complaints or not wanted else 0


if __name__ == "__main__":
    sys.exit(main())
